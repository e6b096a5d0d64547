// Ownership of the objects the library hands out. Every folder, object, list,
// attribute, analysis object and resource is ended with its release(), never
// deleted; Held<T> does that when it goes out of scope, so that a command
// that fails half-way (by throwing ToolError) still gives everything back
// before the vault is released.
#ifndef QZVAULT_TOOL_SUPPORT_HELD_H_
#define QZVAULT_TOOL_SUPPORT_HELD_H_

#include <memory>

namespace qzvtool {

template <class T>
struct ReleaseDeleter {
  void operator()(T* object) const noexcept {
    if (object != nullptr) object->release();
  }
};

template <class T>
using Held = std::unique_ptr<T, ReleaseDeleter<T>>;

template <class T>
Held<T> hold(T* object) {
  return Held<T>(object);
}

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_HELD_H_
