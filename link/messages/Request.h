// What is the same in all requests and answers: the command's name, and the refusal.
#pragma once

#include <string>

#include "messages/Record.h"

namespace tessel::link {

inline constexpr char kCommandKey[] = "cmd";    // names a request
inline constexpr char kRefusalKey[] = "error";  // in an answer: it refuses, and why

// The answer to a request that only has to be done.
struct Done {
  static constexpr char kName[] = "done";
  static constexpr auto Fields() { return std::tuple<>(); }
};

// The request as it crosses. False, with `error`, when a value cannot be written as text.
template <typename Request>
[[nodiscard]] bool WriteRequest(const Request& request, AttrSet& set, std::string& error) {
  set.Add(kCommandKey, Request::kName);
  return Write(request, set, error);
}

// Null when the answer is no refusal.
inline const char* RefusalIn(const AttrSet& answer) { return answer.Get(kRefusalKey); }

// What an error quotes may come from the request, and need not be fit for an attribute set.
inline AttrSet ToRefusal(const std::string& error) {
  AttrSet answer;
  if (!answer.Add(kRefusalKey, error)) {
    answer.Add(kRefusalKey, "refused; the reason cannot be written");
  }
  return answer;
}

// Reads the answer to a request of the type `Request`. False, with `error`, when it refuses, or
// cannot be read.
template <typename Answer>
[[nodiscard]] bool ReadAnswer(const AttrSet& untrusted, Answer& answer, std::string& error) {
  const char* refusal = RefusalIn(untrusted);
  if (refusal != nullptr) error = refusal;
  return refusal == nullptr && Read(untrusted, answer, error);
}

}  // namespace tessel::link
