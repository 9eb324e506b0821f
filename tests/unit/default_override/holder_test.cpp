// When the override is installed.

#include <type_traits>

#include "OverrideFixture.h"
#include "runtime/TMBACLNO.h"
#include "runtime/tmbclno_holder.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Holder : public OverrideFixture {};

TEST_F(Holder, InstallsBothWhereSoundIsAllowed) {
  const tmbclno_holder holder;
  EXPECT_THAT(gPlatform.mInstallation, ElementsAre("is sound allowed?", "get", "set"));
  EXPECT_TRUE(tmbclno_aogpd_overriden);
}

TEST_F(Holder, AnyNumberAboveOrBelowZeroAllowsSound) {
  gPlatform.mSoundAllowed = -7;
  const tmbclno_holder holder;
  EXPECT_THAT(gPlatform.mInstallation, ElementsAre("is sound allowed?", "get", "set"));
}

TEST_F(Holder, TriesTheSecondWhateverBecameOfTheFirst) {
  gPlatform.mOverrideStatus = 5;
  const tmbclno_holder holder;
  EXPECT_THAT(gPlatform.mInstallation, ElementsAre("is sound allowed?", "get", "set"));
}

TEST_F(Holder, TriesOnce) {
  const tmbclno_holder first;
  gPlatform.mInstallation.clear();
  const tmbclno_holder second;
  EXPECT_THAT(gPlatform.mInstallation, IsEmpty());
}

TEST_F(Holder, LeavesARootProcessAloneForGood) {
  gPlatform.mUser = 0;
  const tmbclno_holder first;
  EXPECT_THAT(gPlatform.mInstallation, IsEmpty()) << "not even asked whether sound is allowed";
  EXPECT_TRUE(tmbclno_aogpd_overriden);
  gPlatform.mUser = 1000;
  const tmbclno_holder second;
  EXPECT_THAT(gPlatform.mInstallation, IsEmpty());
}

TEST_F(Holder, LeavesASetUserIDProcessAlone) {
  gPlatform.mIsSetUserID = true;
  const tmbclno_holder holder;
  EXPECT_THAT(gPlatform.mInstallation, IsEmpty());
}

TEST_F(Holder, LeavesAProcessWithoutSoundAloneForGood) {
  gPlatform.mSoundAllowed = 0;
  const tmbclno_holder first;
  EXPECT_THAT(gPlatform.mInstallation, ElementsAre("is sound allowed?"));
  gPlatform.mSoundAllowed = 1;
  const tmbclno_holder second;
  EXPECT_THAT(gPlatform.mInstallation, ElementsAre("is sound allowed?"));
}

TEST_F(Holder, TakesNothingOutAtItsEnd) {
  static_assert(std::is_trivially_destructible_v<tmbclno_holder>);
  { const tmbclno_holder holder; }
  EXPECT_THAT(gPlatform.mInstallation, ElementsAre("is sound allowed?", "get", "set"));
}

// Looks once all images are loaded and no test has run.
class AtLoad : public testing::Environment {
 public:
  void SetUp() override { sWasTried = tmbclno_aogpd_overriden; }
  static bool sWasTried;
};
bool AtLoad::sWasTried = true;
[[maybe_unused]] testing::Environment* const sAtLoad =
    testing::AddGlobalTestEnvironment(new AtLoad);

TEST(Image, OfATestHasNoHolderOfItsOwn) {
  // The one that installs at load belongs to the plug-in's image alone.
  EXPECT_FALSE(AtLoad::sWasTried);
}

}  // namespace
}  // namespace tembra::test
