// Names under which watchers see a stream's counters and the words of its rate-control block: on
// the wire, in the host's lists and in what `tessel` prints.
#pragma once

namespace quill::stream {

// What each counts stands in doc/session.md.
namespace counter_name {
inline constexpr char kPublished[] = "made";
inline constexpr char kDelivered[] = "delivered";
inline constexpr char kDropped[] = "dropped";
inline constexpr char kThinned[] = "thinned";
inline constexpr char kUntriggered[] = "untriggered";
inline constexpr char kRefused[] = "refused";
inline constexpr char kHeld[] = "held";
}  // namespace counter_name

// What each does stands in doc/rate-control.md.
namespace control_word {
inline constexpr char kBitRate[] = "bitrate";
inline constexpr char kBitRateTarget[] = "bitrate_target";
inline constexpr char kBitRateMin[] = "bitrate_min";
inline constexpr char kBitRateMax[] = "bitrate_max";
inline constexpr char kFrameRate[] = "framerate";
inline constexpr char kFrameRateMin[] = "framerate_min";
inline constexpr char kFrameRateMax[] = "framerate_max";
inline constexpr char kQp[] = "qp";
inline constexpr char kQpMin[] = "qp_min";
inline constexpr char kQpMax[] = "qp_max";
inline constexpr char kQpReported[] = "qp_reported";
inline constexpr char kKeyFrameRequest[] = "keyframe_req";
inline constexpr char kTriggerRequest[] = "trigger_req";
inline constexpr char kFrameCount[] = "frame_count";
}  // namespace control_word

}  // namespace quill::stream
