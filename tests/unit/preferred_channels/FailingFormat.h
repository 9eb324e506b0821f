#pragma once

namespace tembra::test {

// Which of the next preferences' names cannot be made, counted from 1; 0 for none.
extern int gFailingFormat;

}  // namespace tembra::test
