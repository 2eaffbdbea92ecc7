// Chains of the board's real elements: their parameters, and the words of their rate-control block,
// which Linux may change before each unit.
#include <sstream>

#include <sys/mman.h>
#include <unistd.h>

#include "AudioDevices.h"
#include "Clock.h"
#include "Doorbell.h"
#include "ElementTable.h"
#include "Input.h"
#include "SessionProducer.h"
#include "UniqueFd.h"

namespace tessel::fuzz {
namespace {

using namespace rtos;
using link::Doorbell;
using quill::base::LayoutElement;

constexpr int kMostSide = 64;  // pixels; larger pictures take more time and reach no other code
constexpr int kMostUnits = 200;
constexpr std::size_t kAreaBytes = std::size_t{1} << 18;

constexpr VbrcBlock::Word VbrcBlock::*kWords[] = {
    &VbrcBlock::bitrate_target,
    &VbrcBlock::bitrate_min,
    &VbrcBlock::bitrate_max,
    &VbrcBlock::framerate,
    &VbrcBlock::framerate_min,
    &VbrcBlock::framerate_max,
    &VbrcBlock::qp,
    &VbrcBlock::qp_min,
    &VbrcBlock::qp_max,
    &VbrcBlock::keyframe_req,
    &VbrcBlock::trigger_req,
};

// The path of three grey pictures.
std::string Film() {
  static const UniqueFd file(memfd_create("film", MFD_CLOEXEC));
  const std::string picture = "FRAME\n" + std::string(24 * 24 * 3 / 2, 'x');
  const std::string film = "YUV4MPEG2 W24 H24 F10:1\n" + picture + picture + picture;
  Require(pwrite(file.Get(), film.data(), film.size(), 0) > 0, "there is a film");
  return "/proc/self/fd/" + std::to_string(file.Get());
}

// Builds a chain and moves units through it as an application does, but without a thread and a
// clock.
class Chain : private Context, private StopSignal {
 public:
  // `board`: mic=, paced=, loop=, microphone={…} as in a board file; with sensor= a film is played.
  explicit Chain(const AttrSet& board)
      : _area(new (std::align_val_t(4096)) std::byte[kAreaBytes]()) {
    quill::stream::InitVbrcBlock(_block, 0);
    _settings.paced = false;
    const char* mic = board.Get("mic");
    if (mic != nullptr && *mic == 't') _settings.mic = mic;  // no device and no file
    board.Get("paced", _settings.paced);
    board.Get("loop", _settings.loop);
    if (board.Get("sensor") != nullptr) _settings.sensor = Film();
    std::string error;
    if (const char* microphone = board.Get("microphone")) {
      std::istringstream file(microphone);
      _devices = AudioDevices::Read(file, error);
    }
    _settings.microphone = (_devices ? *_devices : *_usual).Microphone();
  }

  bool Build(const std::vector<LayoutElement>& layout) {
    for (const LayoutElement& wanted : layout) {
      for (const ElementRow& row : ElementTable()) {
        if (wanted.class_name != row.name) continue;
        _chain.push_back(row.make());
        if (row.is_encoder) _encoder = &row;
      }
      wanted.params.Get("fr", _frames_per_second);
    }
    _source = _chain.empty() ? nullptr : dynamic_cast<Source*>(_chain.front().get());
    _sink = _chain.empty() ? nullptr : dynamic_cast<Sink*>(_chain.back().get());
    if (_chain.size() != layout.size() || _source == nullptr || _sink == nullptr) return false;
    std::string error;
    for (std::size_t i = 0; i < _chain.size(); ++i) {
      const bool is_open = _chain[i]->Open(*this, layout[i].params, _media, error);
      Require(is_open == error.empty(), "a refused element has a reason");
      if (!is_open) return false;
      Require(IsPossible(), "what an element delivers lies in its range");
      QpPolicy* policy = _chain[i]->Policy();
      for (std::size_t j = 0; policy != nullptr && j < i; ++j) _chain[j]->Follow(*policy);
    }
    return true;
  }

  // Sets words as the input says and moves a unit, until the input is over.
  void Run(Input& input) {
    for (const auto& element : _chain) element->Start();
    Unit unit;
    for (int i = 0; i < kMostUnits && !input.IsEmpty(); ++i) {
      const auto word = input.Take<std::uint8_t>();
      if (word < std::size(kWords)) (_block.*kWords[word]).store(input.Take<std::int32_t>());
      if (!MoveOne(unit, word == std::size(kWords))) break;
    }
    for (std::size_t i = 0; i < _chain.size(); ++i) {
      for (int kept = 0; kept < kMostUnits && _chain[i]->KeepsBack(); ++kept) {
        unit.room = Reserve();
        if (_chain[i]->Drain(unit) != Verdict::kPass || !PassThrough(unit, i + 1)) break;
      }
    }
    for (const auto& element : _chain) element->Stop();
  }

 private:
  struct Free {
    void operator()(std::byte* memory) const { operator delete[](memory, std::align_val_t(4096)); }
  };

  bool IsPossible() const {
    if (_media.width == 0) return _media.sample_rate >= 8000 && _media.channels <= 2;
    return _media.height >= 16 && _media.frames_per_second >= 1 && _media.frames_per_second <= 1000;
  }

  // The consumer has let go of all slots.
  std::span<std::uint8_t> Reserve() {
    reinterpret_cast<link::SessionHeader*>(_area.get())->released.store(~std::uint64_t{0});
    return _sink->Reserve();
  }

  bool MoveOne(Unit& unit, bool has_no_room) {
    unit.control = ReadRateControl(_block);
    unit.is_key = false;
    unit.size_bytes = 0;
    Verdict verdict = _source->Await(unit, *this);
    for (const auto& element : _chain) {
      if (verdict == Verdict::kPass) verdict = element->Admit(unit);
    }
    if (verdict == Verdict::kEnd || verdict == Verdict::kFail) return false;
    if (verdict != Verdict::kPass) return _source->Skip(unit) != Verdict::kFail;
    unit.room = has_no_room && _source->IsContinuous() ? std::span<std::uint8_t>() : Reserve();
    return PassThrough(unit, 0);
  }

  bool PassThrough(Unit& unit, std::size_t first) {
    Verdict verdict = Verdict::kPass;
    for (std::size_t i = first; i < _chain.size() && verdict == Verdict::kPass; ++i) {
      verdict = _chain[i]->Process(unit);
      Require(verdict != Verdict::kFail || !_chain[i]->LastError().empty(), "failed for a reason");
      Require(unit.room.empty() || unit.size_bytes <= unit.room.size(), "a unit fits its slot");
      Require(unit.qp >= 0 && unit.qp <= 51, "a quantiser in its range");
    }
    return verdict == Verdict::kPass || verdict == Verdict::kNeedMore;
  }

  // Context
  const ChainSettings& Settings() const override { return _settings; }
  VbrcBlock* Block(const char* text, std::string& error) const override {
    if (*text == '1') return &_block;
    error = "no such block";
    return nullptr;
  }
  std::unique_ptr<link::SessionProducer> Session(const char* name,
                                                 std::string& error) const override {
    if (*name == 's') {
      return link::SessionProducer::Create({_area.get(), kAreaBytes}, Doorbell::Create(),
                                           Doorbell::Create());
    }
    error = "no such session";
    return nullptr;
  }
  int FramesPerSecond() const override { return _frames_per_second; }
  const ElementRow* Encoder() const override { return _encoder; }
  // StopSignal
  bool SleepUntil(std::int64_t) override { return true; }

  ChainSettings _settings;
  std::optional<AudioDevices> _usual = AudioDevices::Usual();
  std::optional<AudioDevices> _devices;
  mutable VbrcBlock _block;
  std::unique_ptr<std::byte[], Free> _area;
  std::vector<std::unique_ptr<Element>> _chain;
  Media _media;
  Source* _source = nullptr;
  Sink* _sink = nullptr;
  const ElementRow* _encoder = nullptr;
  int _frames_per_second = 30;
};

int Drive(const AttrSet& board, const std::string& layout, Input& input) {
  std::vector<LayoutElement> elements;
  std::string error;
  if (!quill::base::ParseLayout(layout.c_str(), elements, error)) return 0;
  for (const LayoutElement& element : elements) {
    int side = 0;
    if (element.params.Get("w", side) && side > kMostSide) return 0;
    if (element.params.Get("h", side) && side > kMostSide) return 0;
  }
  Chain chain(board);
  if (chain.Build(elements)) chain.Run(input);
  return 0;
}

}  // namespace

// The first line is the board, the second the chain.
int FuzzElements(const std::uint8_t* data, std::size_t size_bytes) {
  Input input(data, size_bytes);
  const AttrSet board(input.Line().c_str());
  const std::string layout = input.Line();
  return Drive(board, layout, input);
}

int FuzzControl(const std::uint8_t* data, std::size_t size_bytes) {
  const std::string camera = "pv-yuv-src-adv:w=32,h=32+";
  const std::string sink = "+ShmSink:session_name=s";
  const std::string chains[] = {
      camera + "h264-encoder-dma:gop=8,vbrc=1" + sink,
      camera + "FrameTrigger:vbrc=1+FrameDroper:vbrc=1+h264-encoder-dma:gop=5,vbrc=1" + sink,
      camera + "FrameDroper:vbrc=1+h264-encoder-dma:gop=6,vbrc=1+H264VBrc:vbrc=1" + sink,
      camera + "h264-encoder-dma:goptype=I,gop=30,vbrc=1+H264VBrc:vbrc=1" + sink,
      camera + "FrameTrigger:vbrc=1+jpeg-encoder:vbrc=1" + sink,
  };
  Input input(data, size_bytes);
  const std::string& layout = chains[input.Take<std::uint8_t>() % std::size(chains)];
  return Drive(AttrSet(), layout, input);
}

}  // namespace tessel::fuzz
