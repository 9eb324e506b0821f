#include "objects/CAPropertyAddress.h"

#include <algorithm>

bool CAPropertyAddressList::HasItem(const AudioObjectPropertyAddress& inAddress) const noexcept {
  return std::any_of(mAddressList.begin(), mAddressList.end(),
                     [&](const CAPropertyAddress& inItem) {
                       return CAPropertyAddress::CongruentEqualTo()(inItem, inAddress);
                     });
}

void CAPropertyAddressList::AppendItem(const AudioObjectPropertyAddress& inAddress) {
  mAddressList.push_back(inAddress);
}

void CAPropertyAddressList::AppendUniqueItem(const AudioObjectPropertyAddress& inAddress) {
  if (!HasItem(inAddress)) AppendItem(inAddress);
}
