// Which object is being built on a thread. The virtual base `object` is built first and destroyed
// last, so memory that a constructor asks for by a command without an argument can be given to the
// object under construction, and taken back when nothing of that object is left.
#pragma once

namespace quill::base {

class object;

// Each thread has its own; nothing here locks.
class Construction {
 public:
  static void Begin(object& built);
  // The object is gone but for its storage: what belongs to it goes back.
  static void Gone(object& built);
  // The innermost object under construction on this thread, or null.
  static object* Current();

  // Around one call of a creation function: what was begun inside is finished at its end.
  class Scope {
   public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    unsigned long _depth;
  };
};

}  // namespace quill::base
