#include "Targets.h"

namespace tessel::fuzz {

int FuzzText(const std::uint8_t* data, std::size_t size_bytes);
int FuzzRing(const std::uint8_t* data, std::size_t size_bytes);
int FuzzReleased(const std::uint8_t* data, std::size_t size_bytes);
int FuzzControl(const std::uint8_t* data, std::size_t size_bytes);
int FuzzElements(const std::uint8_t* data, std::size_t size_bytes);
int FuzzFilm(const std::uint8_t* data, std::size_t size_bytes);
int FuzzBoard(const std::uint8_t* data, std::size_t size_bytes);
int FuzzWire(const std::uint8_t* data, std::size_t size_bytes);
int FuzzHostWire(const std::uint8_t* data, std::size_t size_bytes);
int FuzzMessages(const std::uint8_t* data, std::size_t size_bytes);
int FuzzMedia(const std::uint8_t* data, std::size_t size_bytes);
int FuzzUrl(const std::uint8_t* data, std::size_t size_bytes);
int FuzzTool(const std::uint8_t* data, std::size_t size_bytes);

namespace {

constexpr Target kTargets[] = {
    {"text", &FuzzText},         {"ring", &FuzzRing},         {"released", &FuzzReleased},
    {"control", &FuzzControl},   {"elements", &FuzzElements}, {"film", &FuzzFilm},
    {"board", &FuzzBoard},       {"wire", &FuzzWire},         {"host_wire", &FuzzHostWire},
    {"media", &FuzzMedia},       {"url", &FuzzUrl},           {"tool", &FuzzTool},
    {"messages", &FuzzMessages},
};

}  // namespace

std::span<const Target> Targets() { return kTargets; }

}  // namespace tessel::fuzz
