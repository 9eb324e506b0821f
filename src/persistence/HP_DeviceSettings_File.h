#pragma once

#include <CoreFoundation/CoreFoundation.h>

// Purpose: reads a file whole, and replaces it whole: whoever reads it finds the content before or
//   the content after, also if the writer is killed.
// Thread: any.
// Ownership: the caller owns what CopyContent answers.
// Units and range: content of up to 64 MiB.
// Failure: nothing is reported; the file stays as it was. Neither follows a link at the path nor
//   touches anything there but a plain file.
namespace HP_DeviceSettings_File {

// Null with outExists false if there is no file or nothing in it; null with outExists true if it
// cannot be read to its end.
CFDataRef CopyContent(const char* inPath, bool& outExists);

// The file keeps its mode and, as far as may be, its owner. One that this process may not write
// stays as it is. What killed writers left beside it goes.
void Replace(const char* inPath, CFDataRef inContent);

}  // namespace HP_DeviceSettings_File
