// `tessel inspect`: one class in detail. Only audio devices need the real-time side for that.
#include <cstdio>
#include <utility>

#include "quill/Factory.h"
#include "quill/Host.h"
#include "tessel/IAacSource.h"
#include "tessel/IH264Source.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

#include "Classes.h"
#include "Commands.h"
#include "Console.h"
#include "DeviceClasses.h"
#include "ErrorLog.h"
#include "Units.h"

namespace tessel::tool {
namespace {

using api::streaming::common::H264MediaInfo;
using api::streaming::common::IBitRateControl;
using api::streaming::common::IH264;
using api::streaming::common::IStreamOutput;
using api::streaming::common::IYuvDevice;
using quill::base::AttrSet;
using quill::base::Factory;
using quill::base::object;

struct ModeRow {
  IBitRateControl::BitRateControl mode;
  const char* name;
};
constexpr ModeRow kModes[] = {
    {IBitRateControl::kConstant, "constant"},
    {IBitRateControl::kVariable, "variable"},
    {IBitRateControl::kConstrainedVariable, "constrained variable"},
    {IBitRateControl::kAverage, "average"},
    {IBitRateControl::kFixedQp, "fixed QP"},
};

void Row(const char* label, const std::string& value) {
  if (!value.empty()) std::printf("%-16s%s\n", label, value.c_str());
}

std::string ModesText(const IBitRateControl& control) {
  std::string text;
  for (const auto mode : control.BitRateControlSupportedList()) {
    std::string name = std::to_string(mode);
    for (const ModeRow& row : kModes) {
      if (row.mode == mode) name = row.name;
    }
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

void PrintClass(const IClass& record) {
  Row("name", record.Name());
  Row("short name", ShortName(record));
  Row("constructor", ConstructorText(record));
  if (record.Base() != nullptr) Row("alias of", record.Base()->Name());
  for (const std::string& alias : AliasesOf(record)) Row("alias", alias);
  Row("module", record.Module());
  Row("version", VersionText(record));
  Row("vendor", record.Vendor());
  Row("author", record.Author());
}

void PrintDefaults(object& made) {
  if (const auto* video = dynamic_cast<IH264*>(&made)) {
    const H264MediaInfo info = video->GetH264MediaInfo();
    Row("size", Format("%dx%d", info.width, info.height));
    Row("gop", std::to_string(info.gop));
    Row("goptype", info.goptype);
  }
  if (const auto* jpeg = dynamic_cast<api::streaming::IJpegSource*>(&made)) {
    const auto info = jpeg->GetJpegMediaInfo();
    Row("size", Format("%dx%d", info.width, info.height));
  }
  if (const auto* raw = dynamic_cast<IYuvDevice*>(&made)) {
    const auto info = raw->GetYuvMediaInfo();
    Row("size", Format("%dx%d", info.width, info.height));
    Row("format", info.format);
    Row("frame rate", std::to_string(info.frameRate) + " frames/s");
  }
  if (const auto* aac = dynamic_cast<api::streaming::IAacSource*>(&made)) {
    const auto info = aac->GetAacMediaInfo();
    Row("sound", SoundText(info.rate, info.channels));
  } else if (const auto* pcm = dynamic_cast<api::streaming::IPcmSource*>(&made)) {
    const auto info = pcm->GetPcmMediaInfo();
    Row("sound",
        SoundText(info.sampleRate, info.channels) + Format(", %d bits", info.bitsPerSample));
  }
  if (const auto* device = dynamic_cast<dev::IAudioDevice*>(&made)) {
    Row("device", DeviceText(*device));
  }
  if (const auto* control = dynamic_cast<IBitRateControl*>(&made)) {
    Row("frame rate", std::to_string(control->GetCurrentFrameRate()) + " frames/s");
    Row("bit rate", std::to_string(control->GetCurrentBitRate()) + " bit/s measured");
    const int qp = control->GetCurrentQP();
    Row("QP", qp == 0 ? "0, left to rate control" : std::to_string(qp));
    Row("rate control", ModesText(*control));
  }
}

// Answers the questions of a source about its microphone. Sources ask them before they describe
// their chain, and the answers do not show in the description.
bool AnswerProbe(AttrSet& request) {
  request.Add("object_base", "1");
  request.Add("rate", 48000);
  request.Add("channels", 2);
  for (const char* control : {"canVol", "canAgc", "canMute"}) request.Add(control, false);
  return true;
}

// The description that Open() sends to the real-time side. Empty when it sends none.
std::string RecordDescription(IStreamOutput& output) {
  std::string description;
  const auto record = [&description](AttrSet& request) {
    const char* command = request.Get("cmd");
    if (command != nullptr && command == std::string("ProbeAudioDriver"))
      return AnswerProbe(request);
    if (description.empty()) description = request.ToString(false);
    return false;  // no real-time side opens it
  };
  Factory& factory = Factory::Globle();
  Factory::Command before = factory.ReplaceCommand("shm0_cmd", record);
  {
    const ErrorsMuted muted;
    output.Open();
    output.Close();
  }
  factory.ReplaceCommand("shm0_cmd", std::move(before));
  return description;
}

// Prints what is known of a class, its defaults and the description that it would send.
class InspectCommand : public Command {
 public:
  explicit InspectCommand(CLI::App& tool)
      : Command(tool, "inspect", "Show a class, its defaults and the chain it asks for",
                "Example:\n  tessel inspect ApiH264Source-dualos-cbrc-pull\n") {
    _app.add_option("NAME", _name, "Class to show")->required();
  }
  int Run() override;

 private:
  std::string _name;  // as FindClass() takes it
};

int InspectCommand::Run() {
  std::string error;
  const IClass* record = FindClass(_name, error);
  if (record == nullptr) {
    Say(error);
    return kFailed;
  }
  PrintClass(*record);
  if (!IsCreatable(*record)) return kDone;

  const ClassTraits traits = TraitsOf(*record);
  Row("kind", traits.kind);
  Row("delivery", traits.delivery);
  const quill::host::Handle<object> made(quill::host::CreateObject(record->Name().c_str(), ""));
  if (!made) {
    Say("cannot create " + record->Name() + ": " + ErrorLog::LastReason());
    return kFailed;
  }
  PrintDefaults(*made);
  if (auto* output = dynamic_cast<IStreamOutput*>(made.get())) {
    Row("description", RecordDescription(*output));
  }
  return kDone;
}

}  // namespace

std::unique_ptr<Command> AddInspect(CLI::App& tool) {
  return std::make_unique<InspectCommand>(tool);
}

}  // namespace tessel::tool
