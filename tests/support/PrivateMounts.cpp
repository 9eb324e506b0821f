#include "support/PrivateMounts.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace tembra::test {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Refused(const std::string& inWhat) {
  throw std::runtime_error(inWhat + ": " + std::strerror(errno));
}

void Write(const char* inPath, const std::string& inText) {
  std::ofstream file(inPath);
  file << inText;
  if (!file.flush()) Refused(inPath);
}

void Unshare() {
  if (unshare(CLONE_NEWNS) == 0) return;
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) Refused("unshare");
  Write("/proc/self/setgroups", "deny");
  Write("/proc/self/uid_map", user + " " + user + " 1");
  Write("/proc/self/gid_map", group + " " + group + " 1");
}

bool IsBelow(const fs::path& inPath, const fs::path& inFolder) {
  const auto [folder, path] =
      std::mismatch(inFolder.begin(), inFolder.end(), inPath.begin(), inPath.end());
  return folder == inFolder.end() && path != inPath.end();
}

void Bind(const fs::path& inFrom, const fs::path& inTo) {
  if (mount(inFrom.c_str(), inTo.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    Refused("binding " + inFrom.string());
  }
}

// A root in memory that shows the machine's own files, but for the places that are to be private.
class Root {
 public:
  Root(const fs::path& inFolder, std::set<fs::path> inPlaces)
      : mFolder(inFolder), mPlaces(std::move(inPlaces)) {
    fs::create_directories(mFolder);
    // Unbindable, or it would be bound into itself with the folder it lies in.
    if (mount("tmpfs", mFolder.c_str(), "tmpfs", 0, "mode=0755") != 0 ||
        mount(nullptr, mFolder.c_str(), nullptr, MS_UNBINDABLE, nullptr) != 0) {
      Refused("tmpfs on " + mFolder.string());
    }
    ShowFolder("/");
    for (const fs::path& place : mPlaces) {
      fs::create_directories(In(place));
      fs::permissions(In(place), fs::perms(place == "/tmp" ? 01777 : 0755));
    }
  }

  // What a private place would hide is seen all the same.
  void Keep(const fs::path& inFolder) {
    const fs::path folder = fs::canonical(inFolder);
    const bool hidden = std::any_of(mPlaces.begin(), mPlaces.end(), [&](const fs::path& place) {
      return place == folder || IsBelow(folder, place);
    });
    if (!hidden) return;
    fs::create_directories(In(folder));
    Bind(folder, In(folder));
  }

  void Enter() {
    const fs::path here = fs::current_path();
    if (chroot(mFolder.c_str()) != 0) Refused("chroot");
    if (chdir(here.c_str()) != 0 && chdir("/") != 0) Refused("chdir");
  }

 private:
  fs::path In(const fs::path& inPath) const { return mFolder / inPath.relative_path(); }

  // A folder with a private place somewhere below is made anew; all else is shown as it is.
  void ShowFolder(const fs::path& inFolder) {
    for (const fs::directory_entry& entry : fs::directory_iterator(inFolder)) {
      const fs::path& path = entry.path();
      if (mPlaces.count(path) != 0) continue;
      if (entry.is_symlink()) {
        fs::copy_symlink(path, In(path));
      } else if (!entry.is_directory()) {
        std::ofstream(In(path)).flush();
        Bind(path, In(path));
      } else {
        fs::create_directory(In(path));
        if (std::any_of(mPlaces.begin(), mPlaces.end(),
                        [&](const fs::path& place) { return IsBelow(place, path); })) {
          ShowFolder(path);
        } else {
          Bind(path, In(path));
        }
      }
    }
  }

  const fs::path mFolder;
  const std::set<fs::path> mPlaces;
};

}  // namespace

bool MountPrivately(const std::vector<std::string>& inPlaces, std::string& outWhyNot) {
  try {
    std::set<fs::path> places;
    // /var/run may be a link to /run: what counts is where a path leads.
    for (const std::string& place : inPlaces) places.insert(fs::weakly_canonical(place));
    Unshare();
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) Refused("private mounts");
    Root root(TEMBRA_BINARY_DIR "/tests/private-root", places);
    root.Keep(TEMBRA_SOURCE_DIR);
    root.Keep(TEMBRA_BINARY_DIR);
    root.Enter();
    return true;
  } catch (const std::exception& error) {
    outWhyNot = error.what();
    return false;
  }
}

// The hog mode file, and what is posted to all users; settings, and the preferences of any user;
// what the server tells of itself; the marker that allows telemetry.
PrivateMounts::PrivateMounts(const std::vector<std::string>& inMore)
    : mPlaces{"/tmp", "/Library", "/var/run", "/var/db"} {
  mPlaces.insert(mPlaces.end(), inMore.begin(), inMore.end());
}

void PrivateMounts::SetUp() {
  std::string whyNot;
  if (MountPrivately(mPlaces, whyNot)) return;
  // The framework runs none of them and counts them as passed: whoever reads what it prints is
  // told.
  const testing::UnitTest& program = *testing::UnitTest::GetInstance();
  for (int i = 0; i < program.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *program.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      const testing::TestInfo& test = *suite.GetTestInfo(j);
      if (test.should_run())
        std::printf("[  SKIPPED ] %s.%s\n", test.test_suite_name(), test.name());
    }
  }
  std::fflush(stdout);
  GTEST_SKIP() << "needs mounts of its own: " << whyNot;
}

}  // namespace tembra::test
