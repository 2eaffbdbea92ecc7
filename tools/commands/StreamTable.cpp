#include "StreamTable.h"

#include <cstdio>
#include <string>
#include <utility>

#include <unistd.h>

#include "quill/MediaKeys.h"
#include "quill/StreamWords.h"

#include "Console.h"
#include "StreamKind.h"

#include <nlohmann/json.hpp>

namespace tessel::tool {
namespace {

namespace control_word = quill::stream::control_word;
namespace counter_name = quill::stream::counter_name;
namespace media_key = quill::stream::media_key;
using quill::host::RtosStream;
using quill::host::StreamCounters;

std::string MediaValue(const RtosStream& stream, const char* key) {
  const auto place = stream.media.find(key);
  return place == stream.media.end() ? "" : place->second;
}

bool IsSound(const RtosStream& stream) {
  return !MediaValue(stream, media_key::kSampleRate).empty();
}

// "-" where a stream has no rate control.
std::string Word(const RtosStream& stream, const char* name, int unit = 1) {
  const auto place = stream.control.find(name);
  return place == stream.control.end() ? "-" : std::to_string(place->second / unit);
}

// The rate that a stream is held to.
std::string AskedRate(const RtosStream& stream) {
  if (IsSound(stream)) return "-";
  if (stream.control.empty()) return MediaValue(stream, media_key::kFrameRate);
  return Word(stream, IsThinned(stream) ? control_word::kFrameRate : control_word::kFrameRateMax);
}

// JPEG encoders are not held to a bit rate, and those of AAC measure none.
std::string AskedKilobits(const RtosStream& stream) {
  const std::string announced_bps = MediaValue(stream, media_key::kBitRate);
  if (IsSound(stream) && announced_bps.size() > 3) {
    return announced_bps.substr(0, announced_bps.size() - 3);
  }
  return MediaValue(stream, media_key::kCodec) == "h264"
             ? Word(stream, control_word::kBitRateTarget, 1000)
             : "-";
}

std::string AskedQp(const RtosStream& stream) {
  const std::string qp = Word(stream, control_word::kQp);
  return qp == "0" ? "auto" : qp;
}

// Pixels; of sound the sample rate and the channels.
std::string Size(const RtosStream& stream) {
  return IsSound(stream)
             ? MediaValue(stream, "rate") + "x" + MediaValue(stream, media_key::kChannels)
             : MediaValue(stream, media_key::kWidth) + "x" + MediaValue(stream, media_key::kHeight);
}

// The measured value beside the asked one.
std::string Pair(const std::string& measured, const std::string& asked) {
  return measured + "/" + asked;
}

// What the counters are called, on the screen and in JSON.
struct CounterColumn {
  const char* heading;
  int width;
  const char* key;
  std::uint64_t StreamCounters::*count;
};
constexpr CounterColumn kCounters[] = {
    {"MADE", 7, counter_name::kPublished, &StreamCounters::published},
    {"DELIVERED", 9, counter_name::kDelivered, &StreamCounters::delivered},
    {"DROPPED", 7, counter_name::kDropped, &StreamCounters::dropped},
    {"THINNED", 7, counter_name::kThinned, &StreamCounters::thinned},
    {"WAITED", 6, counter_name::kUntriggered, &StreamCounters::untriggered},
    {"HELD", 4, counter_name::kHeld, &StreamCounters::held},
    {"REFUSED", 7, counter_name::kRefused, &StreamCounters::refused},
};

}  // namespace

std::vector<StreamRow> FrameRates::Add(std::vector<RtosStream> streams, Clock::time_point now) {
  // Another real-time side counts its streams from the beginning.
  const pid_t process = quill::host::RtosProcessId();
  if (std::exchange(_process, process) != process) _published.clear();
  const double span_s = std::chrono::duration<double>(now - _last).count();
  std::vector<StreamRow> rows;
  std::map<int, std::uint64_t> published;
  for (RtosStream& stream : streams) {
    published[stream.id] = stream.counters.published;
    const auto before = _published.find(stream.id);
    std::optional<double> rate;
    const bool is_known = before != _published.end() && before->second <= stream.counters.published;
    if (is_known && span_s > 0) {
      rate = static_cast<double>(stream.counters.published - before->second) / span_s;
    }
    rows.push_back({std::move(stream), rate});
  }
  _published = std::move(published);
  _last = now;
  return rows;
}

void PrintScreen(const std::vector<StreamRow>& rows) {
  if (IsTerminal(STDOUT_FILENO)) std::fputs("\033[H\033[J", stdout);
  std::printf("%zu stream%s of the real-time side, process %d; measured/asked\n\n", rows.size(),
              rows.size() == 1 ? "" : "s", static_cast<int>(quill::host::RtosProcessId()));
  std::printf("%3s %7s %-17s %-6s %9s %10s %11s %6s", "ID", "CLIENT", "STREAM", "STATE", "SIZE",
              "FRAMES/S", "KBIT/S", "QP");
  for (const CounterColumn& column : kCounters) {
    std::printf(" %*s", column.width, column.heading);
  }
  std::printf("\n");
  for (const auto& [stream, rate] : rows) {
    const std::string size = Size(stream);
    const std::string rates = Pair(rate ? Format("%.1f", *rate) : "-", AskedRate(stream));
    const std::string bits =
        Pair(Word(stream, control_word::kBitRate, 1000), AskedKilobits(stream));
    const std::string qp = Pair(Word(stream, control_word::kQpReported), AskedQp(stream));
    std::printf("%3d %7d %-17s %-6s %9s %10s %11s %6s", stream.id, static_cast<int>(stream.client),
                StreamKind(stream).c_str(), stream.state.c_str(), size.c_str(), rates.c_str(),
                bits.c_str(), qp.c_str());
    for (const CounterColumn& column : kCounters) {
      std::printf(" %*llu", column.width,
                  static_cast<unsigned long long>(stream.counters.*column.count));
    }
    std::printf("\n");
  }
}

void PrintJson(const std::vector<StreamRow>& rows) {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const double time_s = std::chrono::duration<double>(since_epoch).count();
  for (const auto& [stream, rate] : rows) {
    nlohmann::ordered_json line = {
        {"time", time_s},
        {"id", stream.id},
        {"client", stream.client},
        {"own", stream.client == getpid()},
        {"kind", StreamKind(stream)},
        {"session", stream.counters.session},
        {"chain", stream.chain},
        {"state", stream.state},
        {"media", stream.media},
        {"control", stream.control},
        {"frames_per_second", nullptr},
    };
    if (rate) line["frames_per_second"] = *rate;
    for (const CounterColumn& column : kCounters) line[column.key] = stream.counters.*column.count;
    // Texts of the real-time side need not be UTF-8.
    constexpr auto kReplace = nlohmann::ordered_json::error_handler_t::replace;
    std::printf("%s\n", line.dump(-1, ' ', false, kReplace).c_str());
  }
}

}  // namespace tessel::tool
