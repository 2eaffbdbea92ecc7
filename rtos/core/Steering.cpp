#include "Steering.h"

#include <algorithm>
#include <iterator>

#include "quill/StreamWords.h"

namespace tessel::rtos {
namespace {

namespace control_word = quill::stream::control_word;

constexpr char kNoBlock[] = "the stream has no rate control";
constexpr char kNoRate[] = "the bit rate of the stream is not controlled";
constexpr char kNoRange[] = "the quantiser of the stream has no range";
constexpr char kNoKeys[] = "the stream has no key frames to ask for";
constexpr char kNoTrigger[] = "the stream is not one of single frames";

}  // namespace

struct Steering::WordRow {
  const char* name;
  ControlWord word;
  Use use;
  // The error where no element of the chain reads it; null: every chain with a block takes it.
  const char* no_reader = nullptr;
};

constexpr Steering::WordRow Steering::kWords[] = {
    {control_word::kBitRate, &VbrcBlock::bitrate, Use::kReport},
    {control_word::kBitRateTarget, &VbrcBlock::bitrate_target, Use::kSetting, kNoRate},
    {control_word::kBitRateMin, &VbrcBlock::bitrate_min, Use::kSetting, kNoRate},
    {control_word::kBitRateMax, &VbrcBlock::bitrate_max, Use::kSetting, kNoRate},
    {control_word::kFrameRate, &VbrcBlock::framerate, Use::kSetting},
    {control_word::kFrameRateMin, &VbrcBlock::framerate_min, Use::kSetting},
    {control_word::kFrameRateMax, &VbrcBlock::framerate_max, Use::kSetting},
    {control_word::kQp, &VbrcBlock::qp, Use::kSetting},
    {control_word::kQpMin, &VbrcBlock::qp_min, Use::kSetting, kNoRange},
    {control_word::kQpMax, &VbrcBlock::qp_max, Use::kSetting, kNoRange},
    {control_word::kQpReported, &VbrcBlock::qp_reported, Use::kReport},
    {control_word::kKeyFrameRequest, &VbrcBlock::keyframe_req, Use::kRequest, kNoKeys},
    {control_word::kTriggerRequest, &VbrcBlock::trigger_req, Use::kRequest, kNoTrigger},
    {control_word::kFrameCount, &VbrcBlock::frame_count, Use::kReport},
};

bool Steering::SetWord(const std::string& name, int value, std::string& error) const {
  VbrcBlock::Word* word = Find(name, Use::kSetting, error);
  if (word != nullptr) word->store(value, std::memory_order_relaxed);
  return word != nullptr;
}

bool Steering::CountRequest(const std::string& name, std::string& error) const {
  VbrcBlock::Word* word = Find(name, Use::kRequest, error);
  if (word != nullptr) word->fetch_add(1, std::memory_order_relaxed);
  return word != nullptr;
}

std::optional<link::List<std::string, int>> Steering::Words() const {
  if (_chain.block == nullptr) return std::nullopt;
  link::List<std::string, int> words;
  for (const WordRow& row : kWords) {
    words.emplace_back(row.name, (_chain.block->*row.word).load(std::memory_order_relaxed));
  }
  return words;
}

VbrcBlock::Word* Steering::Find(const std::string& name, Use use, std::string& error) const {
  const auto* row = std::find_if(std::begin(kWords), std::end(kWords), [&](const WordRow& known) {
    return name == known.name && use == known.use;
  });
  if (row == std::end(kWords)) {
    error =
        "\"" + name + "\" is nothing that can be " + (use == Use::kRequest ? "requested" : "set");
    return nullptr;
  }
  if (_chain.block == nullptr || (row->no_reader != nullptr && !Reads(row->word))) {
    error = row->no_reader == nullptr ? kNoBlock : row->no_reader;
    return nullptr;
  }
  return &(_chain.block->*row->word);
}

bool Steering::Reads(ControlWord word) const {
  return std::any_of(_chain.stages.begin(), _chain.stages.end(), [word](const Chain::Stage& stage) {
    const auto reads = stage.row->reads;
    return std::find(reads.begin(), reads.end(), word) != reads.end();
  });
}

}  // namespace tessel::rtos
