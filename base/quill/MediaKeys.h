// What a stream carries, by keys and values: the real-time side writes them, and a client sees each
// as a parameter of its IMedia under the same key.
#pragma once

namespace quill::stream {

namespace media_key {

inline constexpr char kCodec[] = "codec";  // "h264", "jpeg", "yuv", "aac" or "pcm"

// Pictures.
inline constexpr char kWidth[] = "w";       // pixels
inline constexpr char kHeight[] = "h";      // pixels
inline constexpr char kFrameRate[] = "fr";  // frames/s

// H.264.
inline constexpr char kGop[] = "gop";              // pictures from one IDR picture to the next
inline constexpr char kGopType[] = "goptype";      // kinds of pictures, such as "IPPP"
inline constexpr char kPacking[] = "pack";         // "byte-stream" or "avc"
inline constexpr char kHeader[] = "header";        // stream header, hexadecimal digits
inline constexpr char kSpsOffset[] = "spsoffset";  // in the header's bytes
inline constexpr char kSpsBytes[] = "isps";
inline constexpr char kPpsOffset[] = "ppsoffset";
inline constexpr char kPpsBytes[] = "ipps";

// Raw pictures; kFormat also raw sound.
inline constexpr char kFormat[] = "fmt";       // as doc/raw-pictures.md names it; sound: "s16le"
inline constexpr char kPixelFormat[] = "pix";  // FFmpeg's name of the same
inline constexpr char kStride[] = "stride";    // bytes from line to line of the first plane
inline constexpr char kPictureBytes[] = "size";

// Sound.
inline constexpr char kSampleRate[] = "rate";  // samples/s
inline constexpr char kChannels[] = "ch";
inline constexpr char kSampleBits[] = "bits";
inline constexpr char kBlock[] = "block";        // samples of one channel in a unit
inline constexpr char kProfile[] = "profile";    // AAC: MPEG-4 audio object type
inline constexpr char kVersion[] = "version";    // AAC: MPEG version in the ADTS header
inline constexpr char kRateIndex[] = "rateidx";  // AAC: of the sample rate, in the ADTS header
inline constexpr char kAdtsBytes[] = "adtslen";  // AAC: of the ADTS header
inline constexpr char kBitRate[] = "bitrate";    // bits/s
inline constexpr char kConfig[] = "config";      // AAC: AudioSpecificConfig, hexadecimal digits

}  // namespace media_key

// As what a client sees a value. One with a key that is not in the table is text.
enum class MediaType { kText, kNumber, kBytes };
struct MediaKey {
  const char* name;
  MediaType type;
};
inline constexpr MediaKey kMediaKeys[] = {
    {media_key::kCodec, MediaType::kText},        {media_key::kWidth, MediaType::kNumber},
    {media_key::kHeight, MediaType::kNumber},     {media_key::kFrameRate, MediaType::kNumber},
    {media_key::kGop, MediaType::kNumber},        {media_key::kGopType, MediaType::kText},
    {media_key::kPacking, MediaType::kText},      {media_key::kHeader, MediaType::kBytes},
    {media_key::kSpsOffset, MediaType::kNumber},  {media_key::kSpsBytes, MediaType::kNumber},
    {media_key::kPpsOffset, MediaType::kNumber},  {media_key::kPpsBytes, MediaType::kNumber},
    {media_key::kFormat, MediaType::kText},       {media_key::kPixelFormat, MediaType::kText},
    {media_key::kStride, MediaType::kText},       {media_key::kPictureBytes, MediaType::kText},
    {media_key::kSampleRate, MediaType::kNumber}, {media_key::kChannels, MediaType::kNumber},
    {media_key::kSampleBits, MediaType::kNumber}, {media_key::kBlock, MediaType::kNumber},
    {media_key::kProfile, MediaType::kNumber},    {media_key::kVersion, MediaType::kNumber},
    {media_key::kRateIndex, MediaType::kNumber},  {media_key::kAdtsBytes, MediaType::kNumber},
    {media_key::kBitRate, MediaType::kNumber},    {media_key::kConfig, MediaType::kText},
};

}  // namespace quill::stream
