// The scope of one change of a stream's status.
#pragma once

#include "quill/Service.h"

namespace tessel::dualos {

// Announces the beginning and the end of a change to the host. In between the host runs no other
// change of the object, so the object needs no lock.
class StatusChange {
 public:
  using Service = quill::stream::Service;
  using Status = quill::stream::IStatus::Status;

  static StatusChange Up(Service& object, Status target) {
    return {object, target, true, object.Service::beforeStatusUp(target)};
  }
  static StatusChange Down(Service& object, Status target) {
    return {object, target, false, object.Service::beforeStatusDown(target)};
  }
  ~StatusChange() {
    if (!_may_run) return;
    if (_is_up) {
      _object.Service::afterStatusUp(_target);
    } else {
      _object.Service::afterStatusDown(_target);
    }
  }
  StatusChange(const StatusChange&) = delete;
  StatusChange& operator=(const StatusChange&) = delete;

  // False when the change must not run. The host has refused and logged an upward change; it has
  // handed a downward one to the change under way, which carries it out.
  explicit operator bool() const { return _may_run; }

 private:
  StatusChange(Service& object, Status target, bool is_up, bool may_run)
      : _object(object), _target(target), _is_up(is_up), _may_run(may_run) {}

  Service& _object;
  const Status _target;
  const bool _is_up;
  const bool _may_run;
};

}  // namespace tessel::dualos
