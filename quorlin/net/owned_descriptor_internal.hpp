// A descriptor owned by a scope from the moment it exists: whatever ends the scope, a return or
// an exception, closes it, unless it was handed on with release().
#ifndef QUORLIN_NET_OWNED_DESCRIPTOR_INTERNAL_HPP
#define QUORLIN_NET_OWNED_DESCRIPTOR_INTERNAL_HPP

#include <unistd.h>

#include <utility>

namespace quorlin {

class OwnedDescriptor {
 public:
  // A negative descriptor is an error result and owns nothing.
  explicit OwnedDescriptor(int descriptor, int (*close_with)(int) = ::close)
      : descriptor_(descriptor), close_with_(close_with) {}
  ~OwnedDescriptor() {
    if (descriptor_ >= 0) close_with_(descriptor_);
  }
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

  int get() const { return descriptor_; }
  // Gives the descriptor up without closing it.
  int release() { return std::exchange(descriptor_, -1); }
  // Closes it now; the close result.
  int close() { return close_with_(release()); }

 private:
  int descriptor_;
  int (*close_with_)(int);
};

}  // namespace quorlin

#endif  // QUORLIN_NET_OWNED_DESCRIPTOR_INTERNAL_HPP
