#include "server/StatisticsWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tembra {

namespace {

bool WriteAll(int inDescriptor, const std::string& inText) {
  size_t done = 0;
  while (done < inText.size()) {
    const ssize_t written = write(inDescriptor, inText.data() + done, inText.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

StatisticsWriter::StatisticsWriter(std::string inPath, bool inJSON, ErrorFunction inOnError)
    : mPath(std::move(inPath)),
      mJSON(inJSON),
      mOnError(std::move(inOnError)),
      mQueue(dispatch_queue_create("com.tembra.tmbasrv.statistics", DISPATCH_QUEUE_SERIAL)) {}

StatisticsWriter::~StatisticsWriter() {
  dispatch_sync(mQueue, ^{
                });
  dispatch_release(mQueue);
}

void StatisticsWriter::Write(const ServerReport& inReport) {
  if (!IsWanted()) return;
  const std::string text = mJSON ? MakeJSON(inReport).dump() + "\n" : MakeText(inReport);
  dispatch_async(mQueue, ^{
    WriteText(text);
  });
}

void StatisticsWriter::WriteText(const std::string& inText) {
  bool written = false;
  if (mPath == "-") {
    written = WriteAll(STDOUT_FILENO, inText);
  } else {
    const std::string temporary = mPath + ".new";
    const int file =
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (file >= 0) {
      written = WriteAll(file, inText);
      close(file);
      written = written && rename(temporary.c_str(), mPath.c_str()) == 0;
    }
  }
  if (written || mFailed) return;
  mFailed = true;
  mOnError("cannot write statistics to '" + mPath + "': " + strerror(errno) +
           ". Name a file in a folder that you may write to.");
}

}  // namespace tembra
