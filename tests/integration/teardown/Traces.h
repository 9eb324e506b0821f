#pragma once

#include <cstddef>
#include <string>

// What a process can see of itself in /proc, whatever the system under test says.
namespace tembra::test {

size_t CountThreads();
// Those whose name holds the text.
size_t CountThreads(const std::string& inName);
size_t CountDescriptors();
// Timers of the kernel that fire within a second. A run loop without a timer of its own has one
// that stands for far longer.
size_t CountTimersDueSoon();
// What the heap has handed out, in bytes; 0 where a sanitizer has the heap.
size_t GetHeapSize();

}  // namespace tembra::test
