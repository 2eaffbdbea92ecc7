#include "ErrorLog.h"

#include <cstdlib>
#include <utility>

namespace tessel::tool {
namespace {

using quill::stream::__dbg_couts;  // NOLINT(bugprone-reserved-identifier)
using quill::stream::kError;

ErrorLog* g_installed = nullptr;  // set once, never destroyed: host threads log until the very end

// The part of a line behind the place in the source: `condition[,details]`.
std::string_view Message(std::string_view line) {
  const std::size_t place_end = line.find(":\t");
  if (place_end != line.npos) line.remove_prefix(place_end + 2);
  const std::size_t line_end = line.find('\n');
  return line.substr(0, line_end);
}

// The details behind a condition. Commas in parentheses or in quotes belong to the condition.
std::string_view Details(std::string_view message) {
  int depth = 0;
  bool is_quoted = false;
  for (std::size_t i = 0; i < message.size(); ++i) {
    const char letter = message[i];
    if (letter == '"') is_quoted = !is_quoted;
    if (is_quoted) continue;
    if (letter == '(') ++depth;
    if (letter == ')') --depth;
    if (letter == ',' && depth == 0) return message.substr(i + 1);
  }
  return {};
}

}  // namespace

void ErrorLog::Write(std::string_view text) {
  const std::lock_guard lock(_mutex);
  _lines.emplace_back(text);
}

void ErrorLog::Clear() {
  const std::lock_guard lock(_mutex);
  _lines.clear();
}

std::string ErrorLog::Reason() const {
  const std::lock_guard lock(_mutex);
  for (const std::string& line : _lines) {
    const std::string_view details = Details(Message(line));
    if (!details.empty()) return std::string(details);
  }
  return _lines.empty() ? "" : std::string(Message(_lines.front()));
}

void ErrorLog::Install() {
  if (g_installed != nullptr || std::getenv("QUILL_DEBUG") != nullptr) return;
  g_installed = new ErrorLog;
  __dbg_couts[kError] = g_installed;
}

std::string ErrorLog::LastReason() {
  if (g_installed == nullptr) return "the log lines say why";
  const std::string reason = g_installed->Reason();
  return reason.empty() ? "no reason was given; QUILL_DEBUG=trace shows every step" : reason;
}

void ErrorLog::Forget() {
  if (g_installed != nullptr) g_installed->Clear();
}

ErrorsMuted::ErrorsMuted() : _before(std::exchange(__dbg_couts[kError], &_log)) {}

ErrorsMuted::~ErrorsMuted() { __dbg_couts[kError] = _before; }

}  // namespace tessel::tool
