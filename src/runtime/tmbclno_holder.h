#pragma once

// Its one object installs the default output override when the image is loaded, before the plug-in
// is asked for anything.
//
// Thread: the one that loads the image.
// Ownership: what is installed stays for the life of the process.
// Units and range: none.
// Failure: none; a process that is refused is not tried again.
class tmbclno_holder {
 public:
  tmbclno_holder();
  ~tmbclno_holder() = default;
  tmbclno_holder(const tmbclno_holder&) = delete;
  tmbclno_holder& operator=(const tmbclno_holder&) = delete;
};
