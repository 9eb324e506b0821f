#pragma once

#include <unistd.h>

#include <utility>

namespace tembra {

// Owns a file descriptor; negative means none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int inDescriptor) : mDescriptor(inDescriptor) {}
  Descriptor(Descriptor&& inOther) noexcept : mDescriptor(inOther.Detach()) {}
  Descriptor& operator=(Descriptor&& inOther) noexcept {
    Reset(inOther.Detach());
    return *this;
  }
  ~Descriptor() { Reset(); }

  int Get() const { return mDescriptor; }
  explicit operator bool() const { return mDescriptor >= 0; }
  int Detach() { return std::exchange(mDescriptor, -1); }
  void Reset(int inDescriptor = -1) {
    if (int old = std::exchange(mDescriptor, inDescriptor); old >= 0) ::close(old);
  }

 private:
  int mDescriptor = -1;
};

}  // namespace tembra
