// The plug-in's entry: announces it to the host when it is loaded and registers its classes when
// the host asks. Registration runs on the host's loading thread.
#include "Catalogue.h"
#include "H264Source.h"
#include "quill/Factory.h"

namespace tessel::dualos {
namespace {

using quill::base::IClass;
using quill::base::TClass;

constexpr char kModule[] = "pluginapistreaming";
constexpr char kModuleString[] = "corvalis/pluginapistreaming@version:1.1.1.6627";
constexpr unsigned kVersion = 0x010101;  // major, minor, patch in successive bytes
constexpr char kVendor[] = "Harvelon";
constexpr char kAuthor[] = "Tessel streaming team";

// A source class, whose constructor takes the delivery: false pushes, true is pulled from.
template <typename Class>
IClass* EnterSource(const char* name) {
  return TClass<bool>::Enter<Class>(name);
}

// In the order of registration.
constexpr CatalogueRow kCatalogue[] = {
    {"ApiH264SourceCbrc1", "ApiH264Source-dualos-cbrc-push", "ApiH264Source-dualos-cbrc-pull",
     &EnterSource<H264Source>, nullptr},
};

enum Row { kH264Source, kRows };
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

// The plug-in's exported names; they are the host's conventions.
extern "C" {

TESSEL_PUBLIC const char* __MODULE_string =  // NOLINT(bugprone-reserved-identifier)
    tessel::dualos::kModuleString;

TESSEL_PUBLIC void RegisterApiH264Source(const char*) {
  tessel::dualos::Register(tessel::dualos::kCatalogue[tessel::dualos::kH264Source]);
}

TESSEL_PUBLIC void RegisterPluginApiStreaming(const char*) { RegisterApiH264Source(nullptr); }

TESSEL_PUBLIC int __cb_register_PluginApiStreaming =  // NOLINT(bugprone-reserved-identifier)
    quill::base::ReflectAdd(&RegisterPluginApiStreaming, 0, "PluginApiStreaming",
                            tessel::dualos::kModuleString);

}  // extern "C"
