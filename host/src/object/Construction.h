// Which object is being built on a thread. The virtual base `object` is built first and destroyed
// last, so memory that a constructor asks for by a command without an argument can be given to the
// object under construction, and taken back when nothing of that object is left.
#pragma once

namespace quill::base {

class object;

// Each thread has its own record, without a lock.
class Construction {
 public:
  // Called by the constructor and by the destructor of `object`.
  static void Begin(object& built);
  static void Gone(object& built);
  // Sets the function that runs when an object has been destroyed. One for the process.
  static void OnGone(void (*hook)(const object&));
  // The object under construction on this thread, or null.
  static object* Current();

  // Around one call of a creation function: the first object begun inside is the one under
  // construction until the end. Scopes nest.
  class Scope {
   public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    object* _outer;
    bool _was_inside;
  };
};

}  // namespace quill::base
