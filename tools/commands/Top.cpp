#include "Top.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <unistd.h>

#include "quill/Host.h"
#include "quill/MediaKeys.h"
#include "quill/StreamWords.h"
#include "tessel/IStreamOutput.h"

#include "Classes.h"
#include "Console.h"
#include "ErrorLog.h"
#include "FrameInbox.h"
#include "Interrupts.h"
#include "Steer.h"

#include <nlohmann/json.hpp>

namespace tessel::tool {
namespace {

using api::streaming::common::frame_t;
using api::streaming::common::IStreamOutput;
namespace control_word = quill::stream::control_word;
namespace counter_name = quill::stream::counter_name;
namespace media_key = quill::stream::media_key;
using quill::host::BoardStream;
using Clock = std::chrono::steady_clock;

// Plays a source and lets its frames go at once. Client's thread.
class Player {
 public:
  explicit Player(quill::host::Handle<IStreamOutput> source) : _source(std::move(source)) {}
  ~Player() {
    _is_over = true;  // the synthetic source's Stop() ends no pull
    _source->Stop();
    if (_reader.joinable()) _reader.join();
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  bool Play() {
    _source->RegisterOutputCallback([](std::shared_ptr<frame_t>&) { return true; });
    if (!_source->Open() || !_source->Start()) return false;
    if (!_source->IsSupportedPullFrame()) return true;
    try {
      _reader = std::thread([this] {
        std::shared_ptr<frame_t> frame;
        while (!_is_over && _source->PullFrame(frame, true)) frame.reset();
      });
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

 private:
  quill::host::Handle<IStreamOutput> _source;
  std::atomic<bool> _is_over{false};
  std::thread _reader;
};

std::unique_ptr<Player> PlaySource(const std::string& name) {
  std::string error;
  const IClass* record = FindCreatable(name, error);
  if (record == nullptr) {
    Say(error);
    return nullptr;
  }
  auto source = quill::host::Create<IStreamOutput>(record->Name().c_str());
  if (!source) {
    Say(record->Name() + " delivers no frames");
    return nullptr;
  }
  ErrorLog::Forget();
  auto player = std::make_unique<Player>(std::move(source));
  if (player->Play()) return player;
  Say("cannot play " + record->Name() + ": " + ErrorLog::LastReason());
  return nullptr;
}

// What a stream did since the look before.
struct Row {
  BoardStream stream;
  std::optional<double> frames_per_second;  // delivered by the real-time side
};

class Rates {
 public:
  std::vector<Row> Add(std::vector<BoardStream> streams, Clock::time_point now) {
    // Another real-time side counts its streams from the beginning.
    const pid_t process = quill::host::FarSideProcess();
    if (std::exchange(_process, process) != process) _made.clear();
    const double span_s = std::chrono::duration<double>(now - _last).count();
    std::vector<Row> rows;
    std::map<int, std::uint64_t> made;
    for (BoardStream& stream : streams) {
      made[stream.id] = stream.counters.made;
      const auto before = _made.find(stream.id);
      std::optional<double> rate;
      const bool is_known = before != _made.end() && before->second <= stream.counters.made;
      if (is_known && span_s > 0) {
        rate = static_cast<double>(stream.counters.made - before->second) / span_s;
      }
      rows.push_back({std::move(stream), rate});
    }
    _made = std::move(made);
    _last = now;
    return rows;
  }

 private:
  std::map<int, std::uint64_t> _made;  // by stream, at the last look
  Clock::time_point _last;
  pid_t _process = 0;
};

std::string Media(const BoardStream& stream, const char* key) {
  const auto place = stream.media.find(key);
  return place == stream.media.end() ? "" : place->second;
}

bool IsSound(const BoardStream& stream) { return !Media(stream, media_key::kSampleRate).empty(); }

// "-" where a stream has no rate control.
std::string Word(const BoardStream& stream, const char* name, int unit = 1) {
  const auto place = stream.control.find(name);
  return place == stream.control.end() ? "-" : std::to_string(place->second / unit);
}

// The rate that a stream is held to.
std::string AskedRate(const BoardStream& stream) {
  const bool is_thinned = HasElement(stream, "FrameDroper");
  if (IsSound(stream)) return "-";
  if (stream.control.empty()) return Media(stream, media_key::kFrameRate);
  return Word(stream, is_thinned ? control_word::kFrameRate : control_word::kFrameRateMax);
}

// JPEG encoders are not held to a bit rate, and those of AAC measure none.
std::string AskedKilobits(const BoardStream& stream) {
  const std::string announced_bps = Media(stream, media_key::kBitRate);
  if (IsSound(stream) && announced_bps.size() > 3) {
    return announced_bps.substr(0, announced_bps.size() - 3);
  }
  return Media(stream, media_key::kCodec) == "h264"
             ? Word(stream, control_word::kBitRateTarget, 1000)
             : "-";
}

std::string AskedQp(const BoardStream& stream) {
  const std::string qp = Word(stream, control_word::kQp);
  return qp == "0" ? "auto" : qp;
}

// Pixels; of sound the sample rate and the channels.
std::string Size(const BoardStream& stream) {
  return IsSound(stream)
             ? Media(stream, media_key::kSampleRate) + "x" + Media(stream, media_key::kChannels)
             : Media(stream, media_key::kWidth) + "x" + Media(stream, media_key::kHeight);
}

// The measured value beside the asked one.
std::string Pair(const std::string& measured, const std::string& asked) {
  return measured + "/" + asked;
}

void PrintScreen(const std::vector<Row>& rows) {
  if (IsTerminal(STDOUT_FILENO)) std::fputs("\033[H\033[J", stdout);
  std::printf("%zu stream%s of the real-time side, process %d; measured/asked\n\n", rows.size(),
              rows.size() == 1 ? "" : "s", static_cast<int>(quill::host::FarSideProcess()));
  std::printf("%3s %7s %-17s %-6s %9s %10s %11s %6s %7s %9s %7s %7s %6s %4s %7s\n", "ID", "CLIENT",
              "STREAM", "STATE", "SIZE", "FRAMES/S", "KBIT/S", "QP", "MADE", "DELIVERED", "DROPPED",
              "THINNED", "WAITED", "HELD", "REFUSED");
  for (const auto& [stream, rate] : rows) {
    const auto& counters = stream.counters;
    const std::string size = Size(stream);
    const std::string rates = Pair(rate ? Format("%.1f", *rate) : "-", AskedRate(stream));
    const std::string bits =
        Pair(Word(stream, control_word::kBitRate, 1000), AskedKilobits(stream));
    const std::string qp = Pair(Word(stream, control_word::kQpReported), AskedQp(stream));
    const auto count = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("%3d %7d %-17s %-6s %9s %10s %11s %6s %7llu %9llu %7llu %7llu %6llu %4llu %7llu\n",
                stream.id, static_cast<int>(stream.client), StreamKind(stream).c_str(),
                stream.state.c_str(), size.c_str(), rates.c_str(), bits.c_str(), qp.c_str(),
                count(counters.made), count(counters.delivered), count(counters.dropped),
                count(counters.thinned), count(counters.untriggered), count(counters.held),
                count(counters.refused));
  }
}

void PrintJson(const std::vector<Row>& rows) {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const double time_s = std::chrono::duration<double>(since_epoch).count();
  for (const auto& [stream, rate] : rows) {
    const auto& counters = stream.counters;
    nlohmann::ordered_json line = {
        {"time", time_s},
        {"id", stream.id},
        {"client", stream.client},
        {"own", stream.client == getpid()},
        {"kind", StreamKind(stream)},
        {"session", counters.session},
        {"chain", stream.chain},
        {"state", stream.state},
        {"media", stream.media},
        {"control", stream.control},
        {"frames_per_second", nullptr},
        {counter_name::kPublished, counters.made},
        {counter_name::kDelivered, counters.delivered},
        {counter_name::kDropped, counters.dropped},
        {counter_name::kThinned, counters.thinned},
        {counter_name::kUntriggered, counters.untriggered},
        {counter_name::kHeld, counters.held},
        {counter_name::kRefused, counters.refused},
    };
    if (rate) line["frames_per_second"] = *rate;
    // Texts of the real-time side need not be UTF-8.
    constexpr auto kReplace = nlohmann::ordered_json::error_handler_t::replace;
    std::printf("%s\n", line.dump(-1, ' ', false, kReplace).c_str());
  }
}

}  // namespace

int Top(const TopOptions& options) {
  auto inbox = std::make_shared<FrameInbox>();  // tells of Ctrl-C
  if (!WatchInterrupts([inbox] { inbox->Interrupt(); })) {
    Say("no thread to wait for Ctrl-C");
    return kFailed;
  }
  std::vector<std::unique_ptr<Player>> players;
  for (const std::string& name : options.names) {
    players.push_back(PlaySource(name));
    if (players.back() == nullptr) return kFailed;
  }
  const bool is_watched = !options.json && options.count == 0 && IsTerminal(STDOUT_FILENO);
  Rates rates;
  Clock::time_point due = Clock::now();
  for (int looks = 0; options.count == 0 || looks < options.count; ++looks) {
    std::vector<BoardStream> streams;
    std::string error;
    const bool is_listed = quill::host::ListBoard(streams, error);
    if (!is_listed && !is_watched) {
      Say(error);
      return kFailed;
    }
    const auto rows = rates.Add(std::move(streams), Clock::now());
    options.json ? PrintJson(rows) : PrintScreen(rows);
    if (!is_listed) std::printf("%s\n", error.c_str());  // it may come back
    if (std::fflush(stdout) != 0) return kFailed;        // nobody reads any more
    due += std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(options.interval_s));
    FrameInbox::Item none;
    if (inbox->Wait(none, due) == FrameInbox::News::kInterrupt) break;
  }
  return kDone;
}

}  // namespace tessel::tool
