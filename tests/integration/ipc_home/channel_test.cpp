// Paths of channels.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "HomeFixture.h"
#include "runtime/TMBIPC.h"

namespace tembra::test {
namespace {

TEST(IsChannelPath, IsAPairOfSubstringSearches) {
  EXPECT_EQ(TMBIPC_IsChannelPath("/var/run/tmbipc/speech.1.ipc"), 1);
  EXPECT_EQ(TMBIPC_IsChannelPath("/var/run/tmbipc.ipc"), 1) << "no separator is needed";
  EXPECT_EQ(TMBIPC_IsChannelPath("/var/run/tmbipc2/a.ipc.old"), 1) << "nor need it be the end";
  EXPECT_EQ(TMBIPC_IsChannelPath("/var/run/tmbipc/../../../etc/x.ipc"), 1);
}

TEST(IsChannelPath, NeedsBothInTheirPlaces) {
  EXPECT_EQ(TMBIPC_IsChannelPath(nullptr), 0);
  EXPECT_EQ(TMBIPC_IsChannelPath(""), 0);
  EXPECT_EQ(TMBIPC_IsChannelPath("/var/run/tmbipc/tmbserverd.0.pid"), 0);
  EXPECT_EQ(TMBIPC_IsChannelPath("/tmp/speech.1.ipc"), 0);
  EXPECT_EQ(TMBIPC_IsChannelPath("/private/var/run/tmbipc/speech.1.ipc"), 0);
  EXPECT_EQ(TMBIPC_IsChannelPath("/var/run/tmbip"), 0);
}

TEST(GetChannelPath, IsTheHomeTheNameAndTheId) {
  char path[128];
  EXPECT_EQ(TMBIPC_GetChannelPath("speech", 7, sizeof path, path), 1);
  EXPECT_STREQ(path, "/var/run/tmbipc/speech.7.ipc");
  EXPECT_EQ(TMBIPC_GetChannelPath("", -12, sizeof path, path), 1);
  EXPECT_STREQ(path, "/var/run/tmbipc/.-12.ipc");
}

TEST(GetChannelPath, RefusesLessThan64BytesAndLeavesThemAlone) {
  char path[64];
  memset(path, '#', sizeof path);
  EXPECT_EQ(TMBIPC_GetChannelPath("speech", 7, 63, path), 0);
  EXPECT_EQ(std::string(path, sizeof path), std::string(64, '#'));
  EXPECT_EQ(TMBIPC_GetChannelPath("speech", 7, 64, path), 1);
  EXPECT_STREQ(path, "/var/run/tmbipc/speech.7.ipc");
  EXPECT_EQ(path[63], 0) << "the last byte is always a terminator";
}

TEST(GetChannelPath, RefusesANullNameOrBuffer) {
  char path[64];
  EXPECT_EQ(TMBIPC_GetChannelPath(nullptr, 7, sizeof path, path), 0);
  EXPECT_EQ(TMBIPC_GetChannelPath("speech", 7, 64, nullptr), 0);
}

TEST(GetChannelPath, CutsWhatIsTooLong) {
  char path[65];
  memset(path, '#', sizeof path);
  const std::string name(100, 'n');
  EXPECT_EQ(TMBIPC_GetChannelPath(name.c_str(), 7, 64, path), 1);
  // One byte less than fits, as the print is bounded by one less than the size.
  EXPECT_EQ(std::string(path), ("/var/run/tmbipc/" + name).substr(0, 62));
  EXPECT_EQ(path[63], 0);
  EXPECT_EQ(path[64], '#');
}

class Channel : public HomeFixture {
 protected:
  Channel() { MakeHome(); }
  const std::string mPath = std::string(kHome) + "/speech.1.ipc";
};

TEST_F(Channel, IsRemoved) {
  Write(mPath, "");
  EXPECT_EQ(TMBIPC_DisposeChannel(mPath.c_str()), 1);
  EXPECT_FALSE(Exists(mPath));
  EXPECT_EQ(TMBIPC_DisposeChannel(mPath.c_str()), 0) << "it is gone";
}

TEST_F(Channel, OtherPathsAreNotRemoved) {
  const std::string other = mFolder + "/speech.1.ipc";
  Write(other, "");
  Write(kPIDFile, "1");
  EXPECT_EQ(TMBIPC_DisposeChannel(other.c_str()), 0);
  EXPECT_EQ(TMBIPC_DisposeChannel(kPIDFile), 0);
  EXPECT_EQ(TMBIPC_DisposeChannel(nullptr), 0);
  EXPECT_TRUE(Exists(other));
  EXPECT_TRUE(Exists(kPIDFile));
}

TEST_F(Channel, IsOpenedToEveryoneOrClosedToOthers) {
  Write(mPath, "");
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 1), 1);
  EXPECT_EQ(ModeOf(mPath), 0666U);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 0), 1);
  EXPECT_EQ(ModeOf(mPath), 0600U);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), -1), 1);
  EXPECT_EQ(ModeOf(mPath), 0666U);
}

TEST_F(Channel, MayBeASocket) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, {}};
  strcpy(address.sun_path, mPath.c_str());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 1), 1);
  EXPECT_EQ(ModeOf(mPath), 0666U);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 0), 1);
  EXPECT_EQ(ModeOf(mPath), 0600U);
  close(listener);
}

TEST_F(Channel, OtherPathsKeepTheirMode) {
  const std::string other = mFolder + "/speech.1.ipc";
  Write(other, "");
  ASSERT_EQ(chmod(other.c_str(), 0640), 0);
  EXPECT_EQ(TMBIPC_SetPermissions(other.c_str(), 1), 0);
  EXPECT_EQ(TMBIPC_SetPermissions(nullptr, 1), 0);
  EXPECT_EQ(ModeOf(other), 0640U);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 1), 0) << "there is none";
}

TEST_F(Channel, ALinkOrASecondNameOpensNoOtherFile) {
  const std::string victim = MakeVictim();
  ASSERT_EQ(symlink(victim.c_str(), mPath.c_str()), 0);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 1), 0);
  EXPECT_TRUE(IsVictimUnharmed(victim));
  EXPECT_EQ(TMBIPC_DisposeChannel(mPath.c_str()), 1) << "the link goes, not what it names";
  EXPECT_TRUE(IsVictimUnharmed(victim));
  ASSERT_EQ(link(victim.c_str(), mPath.c_str()), 0);
  EXPECT_EQ(TMBIPC_SetPermissions(mPath.c_str(), 1), 0);
  EXPECT_TRUE(IsVictimUnharmed(victim));
}

}  // namespace
}  // namespace tembra::test
