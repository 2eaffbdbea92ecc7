// The plug-in's entry: announces the plug-in to the host when it is loaded and registers its
// classes when the host calls. Registration runs on the thread that loads the plug-in.
#include "AacSource.h"
#include "Catalogue.h"
#include "H264Source.h"
#include "H264SourceTrigger.h"
#include "H264SourceVbrc.h"
#include "H264SourceVbrcTrigger.h"
#include "JpegSnap.h"
#include "JpegSource.h"
#include "JpegSourceTrigger.h"
#include "Microphone.h"
#include "PcmSource.h"
#include "Photography.h"
#include "quill/Factory.h"
#include "Speaker.h"
#include "YuvSource.h"
#include "YuvSourceFake.h"

namespace tessel::dualos {
namespace {

using quill::base::IClass;
using quill::base::TClass;

constexpr char kModule[] = "pluginapistreaming";
constexpr char kModuleString[] = "corvalis/pluginapistreaming@version:1.1.1.6627";
constexpr unsigned kVersion = 0x010101;  // major, minor, patch in successive bytes
constexpr char kVendor[] = "Harvelon";
constexpr char kAuthor[] = "Tessel streaming team";

// Registers a source class. Its constructor takes the delivery mode: false is push, true is pull.
template <typename Class>
IClass* EnterSource(const char* name) {
  return TClass<bool>::Enter<Class>(name);
}

// Registers a device or a still-picture class. Its constructor takes no argument.
template <typename Class>
IClass* EnterPlain(const char* name) {
  return TClass<>::Enter<Class>(name);
}

// Attaches the formats that a source can deliver, as a `std::vector` of its media records. A class
// that has a list already keeps it, because a client may have borrowed the list.
template <typename MediaInfo, std::size_t kCount>
void Tag(IClass& record, const MediaInfo (&formats)[kCount]) {
  using List = std::vector<MediaInfo>;
  if (record.Tag<List>() != nullptr) return;
  record.Tags(new List(std::begin(formats), std::end(formats)), &typeid(List),
              [](void* list) { delete static_cast<List*>(list); });
}

void TagYuvFormats(IClass& record) { Tag(record, {api::streaming::common::YuvMediaInfo()}); }

void TagPcmFormats(IClass& record) {
  static constexpr api::streaming::common::PcmMediaInfo kFormats[] = {
      {48000, 1, 1, 16}, {48000, 2, 1, 16}, {44100, 1, 1, 16}, {44100, 2, 1, 16}, {32000, 1, 1, 16},
      {32000, 2, 1, 16}, {16000, 1, 1, 16}, {16000, 2, 1, 16}, {8000, 1, 1, 16},  {8000, 2, 1, 16},
  };
  Tag(record, kFormats);
}

// In the order of registration.
constexpr CatalogueRow kCatalogue[] = {
    {"ApiPcmSource1", "ApiPcmSource-dualos-push", "ApiPcmSource-dualos-pull",
     &EnterSource<PcmSource>, &TagPcmFormats},
    {"ApiAacSource1", "ApiAacSource-dualos-push", "ApiAacSource-dualos-pull",
     &EnterSource<AacSource>, nullptr},
    {"Speaker-ApiSpeaker-dualos", nullptr, nullptr, &EnterPlain<Speaker>, nullptr},
    {"Microphone-ApiMicrophone-dualos", nullptr, nullptr, &EnterPlain<Microphone>, nullptr},
    {"ApiJpegSourceCbrc1", "ApiJpegSource-dualos-cbrc-push", "ApiJpegSource-dualos-cbrc-pull",
     &EnterSource<JpegSource>, nullptr},
    {"ApiJpegSourceTrigger1", "ApiJpegSourceTrigger-dualos-trigger-push",
     "ApiJpegSourceTrigger-dualos-trigger-pull", &EnterSource<JpegSourceTrigger>, nullptr},
    {"ApiJpegSnap-dualos", nullptr, nullptr, &EnterPlain<JpegSnap>, nullptr},
    {"ApiH264SourceCbrc1", "ApiH264Source-dualos-cbrc-push", "ApiH264Source-dualos-cbrc-pull",
     &EnterSource<H264Source>, nullptr},
    {"ApiH264SourceTrigger1", "ApiH264SourceTrigger-dualos-trigger-push",
     "ApiH264SourceTrigger-dualos-trigger-pull", &EnterSource<H264SourceTrigger>, nullptr},
    {"ApiH264SourceVbrc1", "ApiH264Source-vbrc-dualos-push", "ApiH264Source-vbrc-dualos-pull",
     &EnterSource<H264SourceVbrc>, nullptr},
    {"ApiH264SourceVbrcTrigger1", "ApiH264Source-dualos-vbrc-trigger-push",
     "ApiH264Source-dualos-vbrc-trigger-pull", &EnterSource<H264SourceVbrcTrigger>, nullptr},
    {"ApiYuvSource1", "ApiYuvSource-dualos-push", "ApiYuvSource-dualos-pull",
     &EnterSource<YuvSource>, &TagYuvFormats},
    {"ApiYuvSourceFake1", "ApiYuvSource-dualos-push-fake", "ApiYuvSource-dualos-pull-fake",
     &EnterSource<YuvSourceFake>, &TagYuvFormats},
    {"ApiPhotography-dualos", nullptr, nullptr, &EnterPlain<Photography>, nullptr},
};

enum Row {
  kPcmSource,
  kAacSource,
  kSpeaker,
  kMicrophone,
  kJpegSource,
  kJpegSourceTrigger,
  kJpegSnap,
  kH264Source,
  kH264SourceTrigger,
  kH264SourceVbrc,
  kH264SourceVbrcTrigger,
  kYuvSource,
  kYuvSourceFake,
  kPhotography,
  kRows
};
static_assert(std::size(kCatalogue) == kRows, "a name for each row");

}  // namespace

void Register(const CatalogueRow& row) {
  IClass* record = row.enter(row.name);
  if (row.tag != nullptr) row.tag(*record);
  record->Init(kModule, kVersion, kVendor, kAuthor, nullptr);
  if (row.push_alias == nullptr) return;
  TClass<>::Register<bool>(row.push_alias, row.name, false);
  TClass<>::Register<bool>(row.pull_alias, row.name, true);
}

}  // namespace tessel::dualos

namespace {

void RegisterRow(tessel::dualos::Row row) {
  tessel::dualos::Register(tessel::dualos::kCatalogue[row]);
}

}  // namespace

// The plug-in's exported names, which follow the host's conventions.
extern "C" {

TESSEL_PUBLIC const char* __MODULE_string =  // NOLINT(bugprone-reserved-identifier)
    tessel::dualos::kModuleString;

TESSEL_PUBLIC void RegisterApiPcmSource(const char*) { RegisterRow(tessel::dualos::kPcmSource); }
TESSEL_PUBLIC void RegisterApiAacSource(const char*) { RegisterRow(tessel::dualos::kAacSource); }
TESSEL_PUBLIC void RegisterApiSpeaker(const char*) { RegisterRow(tessel::dualos::kSpeaker); }
TESSEL_PUBLIC void RegisterApiMicrophone(const char*) { RegisterRow(tessel::dualos::kMicrophone); }
TESSEL_PUBLIC void RegisterApiJpegSource(const char*) { RegisterRow(tessel::dualos::kJpegSource); }
TESSEL_PUBLIC void RegisterApiJpegSourceTrigger(const char*) {
  RegisterRow(tessel::dualos::kJpegSourceTrigger);
}
TESSEL_PUBLIC void RegisterApiJpegSnap(const char*) { RegisterRow(tessel::dualos::kJpegSnap); }
TESSEL_PUBLIC void RegisterApiH264Source(const char*) { RegisterRow(tessel::dualos::kH264Source); }
TESSEL_PUBLIC void RegisterApiH264SourceTrigger(const char*) {
  RegisterRow(tessel::dualos::kH264SourceTrigger);
}
TESSEL_PUBLIC void RegisterApiH264SourceVbrc(const char*) {
  RegisterRow(tessel::dualos::kH264SourceVbrc);
}
TESSEL_PUBLIC void RegisterApiH264SourceVbrcTrigger(const char*) {
  RegisterRow(tessel::dualos::kH264SourceVbrcTrigger);
}
TESSEL_PUBLIC void RegisterApiYuvSource(const char*) { RegisterRow(tessel::dualos::kYuvSource); }
TESSEL_PUBLIC void RegisterApiYuvSourceFake(const char*) {
  RegisterRow(tessel::dualos::kYuvSourceFake);
}

TESSEL_PUBLIC void RegisterApiPhotography(const char*) {
  RegisterRow(tessel::dualos::kPhotography);
}

TESSEL_PUBLIC void RegisterPluginApiStreaming(const char*) {
  RegisterApiPcmSource(nullptr);
  RegisterApiAacSource(nullptr);
  RegisterApiSpeaker(nullptr);
  RegisterApiMicrophone(nullptr);
  RegisterApiJpegSource(nullptr);
  RegisterApiJpegSourceTrigger(nullptr);
  RegisterApiJpegSnap(nullptr);
  RegisterApiH264Source(nullptr);
  RegisterApiH264SourceTrigger(nullptr);
  RegisterApiH264SourceVbrc(nullptr);
  RegisterApiH264SourceVbrcTrigger(nullptr);
  RegisterApiYuvSource(nullptr);
  RegisterApiYuvSourceFake(nullptr);
  RegisterApiPhotography(nullptr);
}

TESSEL_PUBLIC int __cb_register_PluginApiStreaming =  // NOLINT(bugprone-reserved-identifier)
    quill::base::ReflectAdd(&RegisterPluginApiStreaming, 0, "PluginApiStreaming",
                            tessel::dualos::kModuleString);

}  // extern "C"
