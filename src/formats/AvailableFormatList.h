#pragma once

#include "formats/HP_FormatList.h"

// The operations of the lists of available formats.
//
// Purpose: keeps a list in order, looks formats up in it and chooses among them.
// Thread: that of the list's owner.
// Ownership: lists belong to the caller.
// Units and range: rates in frames per second; a rate of 0 asks for any. Counts are of pairs of a
//   format and one of its ranges.
// Failure: by the answer; an index past the end leaves the output as it was.

// Inserts the format at its place, or merges its rates into the entry that equals it.
void AFL_AddFormat(HP_FormatList::AvailableFormatList& ioList,
                   const AudioStreamRangedDescription& inFormat);
UInt32 AFL_GetNumberFormats(const HP_FormatList::AvailableFormatList& inList);
void AFL_GetFormatByIndex(const HP_FormatList::AvailableFormatList& inList, UInt32 inIndex,
                          AudioStreamRangedDescription& outFormat);
bool AFL_SupportsFormat(const HP_FormatList::AvailableFormatList& inList,
                        const AudioStreamBasicDescription& inFormat);
// True if an entry equals the format; outFormat is then that entry's, its rate 0.
bool AFL_FindSampleFormat(const HP_FormatList::AvailableFormatList& inList,
                          const AudioStreamBasicDescription& inFormat,
                          AudioStreamBasicDescription& outFormat);
// Replaces every field of ioFormat with those of the best entry. inCurrentFormat gives the rate
// where ioFormat has none. An empty list has nothing to offer and leaves ioFormat as it was.
void AFL_BestMatchForFormat(const HP_FormatList::AvailableFormatList& inList,
                            const AudioStreamBasicDescription& inCurrentFormat,
                            AudioStreamBasicDescription& ioFormat);
