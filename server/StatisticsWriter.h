#pragma once

#include <dispatch/dispatch.h>

#include <functional>
#include <string>

#include "server/Statistics.h"

namespace tembra {

// Brings statistics to a file, which it replaces whole each time so that a reader never sees half
// of one, or to the standard output, one after the other.
//
// Thread: the server's loop; writing happens on a queue of its own.
// Failure: told once through the error function.
class StatisticsWriter {
 public:
  using ErrorFunction = std::function<void(const std::string&)>;

  // inPath is empty for nowhere, "-" for the standard output.
  StatisticsWriter(std::string inPath, bool inJSON, ErrorFunction inOnError);
  // Waits for what was given to be written.
  ~StatisticsWriter();
  StatisticsWriter(const StatisticsWriter&) = delete;
  StatisticsWriter& operator=(const StatisticsWriter&) = delete;

  bool IsWanted() const { return !mPath.empty(); }
  void Write(const ServerReport& inReport);

 private:
  void WriteText(const std::string& inText);

  const std::string mPath;
  const bool mJSON;
  const ErrorFunction mOnError;
  dispatch_queue_t mQueue;
  bool mFailed = false;  // the queue's
};

}  // namespace tembra
