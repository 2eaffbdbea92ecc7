#include "VideoPlan.h"

#include <algorithm>
#include <utility>

#include "tessel/IH264Source.h"

#include "SourceKinds.h"

namespace tessel::tool {
namespace {

using api::streaming::common::IBitRateControl;
using api::streaming::common::IH264;

constexpr std::chrono::seconds kAnswerPatience(5);

// A bit rate moves its bounds along, unless the user sets them.
void Apply(CaptureSource& source, const ControlChange& change, const CaptureOptions& options) {
  source.Set(change.row->name, {.number = change.value});
  if (change.row != FindControl("bitrate")) return;
  if (options.FirstOf("bitrate-max") == nullptr) {
    source.Set("bitrate-max", {.number = kMaximumRatio * change.value});
  }
  if (options.FirstOf("bitrate-min") == nullptr) {
    source.Set("bitrate-min", {.number = change.value / kMinimumRatio});
  }
}

// Goes on when a source refuses the mode: it still takes the values.
void SelectMode(const CaptureSource& source, const CaptureOptions& options) {
  if (source.control == nullptr) return;
  if (options.FirstOf("qp") != nullptr) {
    source.control->SelectBitRateControl(IBitRateControl::kFixedQp);
  } else if (source.IsThinned()) {
    source.control->SelectBitRateControl(IBitRateControl::kVariable);
  }
}

}  // namespace

void Configure(std::span<CaptureSource> sources, const CaptureOptions& options) {
  for (CaptureSource& source : sources) {
    for (const OptionRow& row : OptionRows()) {
      if (const auto value = row.given(options)) source.Set(row.name, *value);
    }
    SelectMode(source, options);
    for (const ControlChange& change : options.changes) {
      const bool is_meant = &Addressed(sources, change.row->name) == &source;
      if (is_meant && change.frame == 0) Apply(source, change, options);
    }
  }
}

VideoPlan::VideoPlan(CaptureSource& source, const CaptureOptions& options)
    : _source(source), _options(options) {
  std::copy_if(options.changes.begin(), options.changes.end(), std::back_inserter(_changes),
               [](const ControlChange& change) { return change.frame > 0; });
  std::stable_sort(_changes.begin(), _changes.end(),
                   [](const auto& a, const auto& b) { return a.frame < b.frame; });
}

void VideoPlan::Prepare(std::uint64_t number) {
  const auto is_due = [number](int frame) { return static_cast<std::uint64_t>(frame) <= number; };
  while (_next_change < _changes.size() && is_due(_changes[_next_change].frame)) {
    Apply(_source, _changes[_next_change++], _options);
  }
  const auto is_now = [number](int frame) { return static_cast<std::uint64_t>(frame) == number; };
  const bool is_regular = _options.key_every > 0 && number > 0 &&
                          number % static_cast<std::uint64_t>(_options.key_every) == 0;
  const auto& key_at = _options.key_at;
  if (is_regular || std::any_of(key_at.begin(), key_at.end(), is_now)) {
    _source.As<IH264>().ForceKeyFrame();
  }
}

bool VideoPlan::BeginTriggers(Clock::time_point start, std::function<void()> wake) {
  _start = start;
  if (_options.trigger_on_stdin) return _triggers.BeginLines(std::move(wake));
  if (_options.trigger_every == 0) return true;
  _triggers.BeginEvery(std::chrono::milliseconds(_options.trigger_every), start);
  return true;
}

void VideoPlan::Ask(Clock::time_point now, std::uint64_t frames) {
  if (_source.trigger == nullptr || _asks_no_more) return;
  const std::chrono::duration<double> span(_options.seconds.value_or(0));
  const auto end = !_options.seconds ? Clock::time_point::max()
                                     : _start + std::chrono::duration_cast<Clock::duration>(span);
  const bool is_over = now >= end || _triggers.HasEnded();
  const std::uint64_t due = _triggers.Due(std::min(now, end - Clock::duration(1)));
  const auto is_wanted = [&] {
    return !_options.frames || frames + Missing() < static_cast<std::uint64_t>(*_options.frames);
  };
  for (; _asked < due && is_wanted(); ++_asked) _source.trigger->Trigger();
  if (!is_over) return;
  _asks_no_more = true;
  _last_news = now;
}

void VideoPlan::Answer(Clock::time_point now) {
  ++_answered;
  _last_news = now;
}

VideoPlan::Clock::time_point VideoPlan::NextLook(Clock::time_point now,
                                                 Clock::time_point latest) const {
  return std::min(latest, _triggers.NextAfter(now).value_or(latest));
}

bool VideoPlan::HasStalled(Clock::time_point now) const {
  return _asks_no_more && Missing() > 0 && now - _last_news >= kAnswerPatience;
}

}  // namespace tessel::tool
