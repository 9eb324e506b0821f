// The four domains of preferences, and what is known of each.

#include "persistence/CACFPreferences.h"

#include <gmock/gmock.h>

#include "Posts.h"
#include "SettingsFixture.h"
#include "support/CACFArray.h"
#include "support/CACFDictionary.h"
#include "support/CACFNumber.h"
#include "support/CACFObject.h"
#include "support/persistence/FakePreferences.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Domain {
  bool mUser;
  bool mHost;
  const char* mName;
};
constexpr Domain kDomains[] = {{false, false, "any user, any host"},
                               {false, true, "any user, this host"},
                               {true, false, "this user, any host"},
                               {true, true, "this user, this host"}};

class Preferences : public testing::Test {
 protected:
  Preferences() { Reset(); }
  ~Preferences() override { Reset(); }
  static void Reset() {
    FakePreferences::Get().Reset();
    Posts().clear();
    for (const Domain& domain : kDomains)
      CACFPreferences::MarkPrefsClean(domain.mUser, domain.mHost);
  }
  static FakePreferences& Fake() { return FakePreferences::Get(); }
};

TEST_F(Preferences, NoDomainIsOutOfDateAtFirst) {
  for (const Domain& domain : kDomains) {
    EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(domain.mUser, domain.mHost)) << domain.mName;
  }
}

TEST_F(Preferences, EachDomainHasAMarkOfItsOwn) {
  for (const Domain& marked : kDomains) {
    CACFPreferences::MarkPrefsOutOfDate(marked.mUser, marked.mHost);
    for (const Domain& domain : kDomains) {
      EXPECT_EQ(CACFPreferences::ArePrefsOutOfDate(domain.mUser, domain.mHost), &domain == &marked)
          << marked.mName << " and " << domain.mName;
    }
    CACFPreferences::MarkPrefsClean(marked.mUser, marked.mHost);
    EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(marked.mUser, marked.mHost)) << marked.mName;
  }
}

TEST_F(Preferences, ACleanDomainIsNotSynchronized) {
  for (const Domain& domain : kDomains) {
    CACFPreferences::Synchronize(domain.mUser, domain.mHost, false);
    EXPECT_THAT(Fake().TakeCalls(), IsEmpty());
  }
}

TEST_F(Preferences, ADomainThatIsOutOfDateIsSynchronizedOnce) {
  for (const Domain& domain : kDomains) {
    CACFPreferences::MarkPrefsOutOfDate(domain.mUser, domain.mHost);
    CACFPreferences::Synchronize(domain.mUser, domain.mHost, false);
    CACFPreferences::Synchronize(domain.mUser, domain.mHost, false);
    EXPECT_THAT(Fake().TakeCalls(), ElementsAre(std::string("synchronize ") + domain.mName));
    EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(domain.mUser, domain.mHost));
  }
}

TEST_F(Preferences, AForcedSynchronizeAsksAlways) {
  for (const Domain& domain : kDomains) {
    CACFPreferences::Synchronize(domain.mUser, domain.mHost, true);
    EXPECT_THAT(Fake().TakeCalls(), ElementsAre(std::string("synchronize ") + domain.mName));
  }
}

TEST_F(Preferences, ACopyLooksInTheDomainThatWasNamed) {
  for (const Domain& domain : kDomains) {
    Fake().Put("k", CFStringCreateWithCString(nullptr, domain.mName, kCFStringEncodingUTF8),
               domain.mName);
  }
  for (const Domain& domain : kDomains) {
    const CACFObject<CFPropertyListRef> value(
        CACFPreferences::CopyValue(CFSTR("k"), domain.mUser, domain.mHost));
    ASSERT_TRUE(value.IsValid());
    EXPECT_TRUE(CFEqual(value.GetObject(), CACFString(domain.mName).GetCFString()));
    EXPECT_THAT(Fake().TakeCalls(), ElementsAre(std::string("copy k in ") + domain.mName));
  }
}

TEST_F(Preferences, ACopyFromADomainOutOfDateSynchronizesFirst) {
  Fake().PutElsewhere("k", CFRetain(CFSTR("new")));
  CACFObject<CFPropertyListRef> value(CACFPreferences::CopyValue(CFSTR("k"), false, true));
  EXPECT_FALSE(value.IsValid());
  Fake().TakeCalls();
  CACFPreferences::MarkPrefsOutOfDate(false, true);
  value = CACFPreferences::CopyValue(CFSTR("k"), false, true);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("synchronize any user, this host", "copy k in any user, this host"));
  ASSERT_TRUE(value.IsValid());
  EXPECT_TRUE(CFEqual(value.GetObject(), CFSTR("new")));
}

TEST_F(Preferences, ACopyOfTheWrongKindIsNull) {
  Fake().Put("string", CFRetain(CFSTR("text")));
  Fake().Put("number", CACFNumber(SInt32{3}).CopyCFNumber());
  Fake().Put("array", CFRetain(CACFArray(true).GetCFArray()));
  Fake().Put("dictionary", CACFDictionary(true).CopyCFDictionary());
  const char* const keys[] = {"string", "number", "array", "dictionary", "missing"};
  for (const char* name : keys) {
    const CACFString key(name);
    const CACFObject<CFStringRef> string(
        CACFPreferences::CopyStringValue(key.GetCFString(), false, true));
    const CACFObject<CFNumberRef> number(
        CACFPreferences::CopyNumberValue(key.GetCFString(), false, true));
    const CACFObject<CFArrayRef> array(
        CACFPreferences::CopyArrayValue(key.GetCFString(), false, true));
    const CACFObject<CFDictionaryRef> dictionary(
        CACFPreferences::CopyDictionaryValue(key.GetCFString(), false, true));
    EXPECT_EQ(string.IsValid(), name == std::string("string"));
    EXPECT_EQ(number.IsValid(), name == std::string("number"));
    EXPECT_EQ(array.IsValid(), name == std::string("array"));
    EXPECT_EQ(dictionary.IsValid(), name == std::string("dictionary"));
  }
}

TEST_F(Preferences, ACopyOfTheWrongKindKeepsNoReference) {
  CFMutableStringRef string = CFStringCreateMutable(nullptr, 0);
  const CFIndex count = CFGetRetainCount(string);
  Fake().Put("k", CFRetain(string));
  EXPECT_EQ(CACFPreferences::CopyNumberValue(CFSTR("k"), false, true), nullptr);
  EXPECT_EQ(CFGetRetainCount(string), count + 1);
  CFRelease(string);
}

TEST_F(Preferences, ASetWritesToTheDomainAndSynchronizesItIfAsked) {
  for (const Domain& domain : kDomains) {
    const std::string name = domain.mName;
    CACFPreferences::SetValue(CFSTR("k"), CFSTR("v"), domain.mUser, domain.mHost, false);
    EXPECT_THAT(Fake().TakeCalls(), ElementsAre("set k in " + name));
    CACFPreferences::MarkPrefsOutOfDate(domain.mUser, domain.mHost);
    CACFPreferences::SetValue(CFSTR("k"), CFSTR("v"), domain.mUser, domain.mHost, true);
    EXPECT_THAT(Fake().TakeCalls(), ElementsAre("set k in " + name, "synchronize " + name));
    EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(domain.mUser, domain.mHost));
  }
}

TEST_F(Preferences, ADeleteSynchronizesTheCurrentUserWhicheverUserWasNamed) {
  for (const Domain& domain : kDomains) {
    const std::string name = domain.mName;
    const std::string synchronized = domain.mHost ? "this user, this host" : "this user, any host";
    CACFPreferences::DeleteValue(CFSTR("k"), domain.mUser, domain.mHost, false);
    EXPECT_THAT(Fake().TakeCalls(), ElementsAre("remove k in " + name));
    CACFPreferences::DeleteValue(CFSTR("k"), domain.mUser, domain.mHost, true);
    EXPECT_THAT(Fake().TakeCalls(),
                ElementsAre("remove k in " + name, "synchronize " + synchronized));
  }
}

TEST_F(Preferences, ADeleteOfAnyUsersValueLeavesThatDomainsMark) {
  CACFPreferences::MarkPrefsOutOfDate(false, true);
  CACFPreferences::MarkPrefsOutOfDate(true, true);
  CACFPreferences::DeleteValue(CFSTR("k"), false, true, true);
  EXPECT_TRUE(CACFPreferences::ArePrefsOutOfDate(false, true));
  EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(true, true));
}

TEST_F(Preferences, ANotificationGoesToAllUsersWithNoData) {
  CACFPreferences::SendNotification(CFSTR("com.tembra.test.name"));
  ASSERT_EQ(Posts().size(), 1u);
  EXPECT_EQ(Posts()[0].mName, "com.tembra.test.name");
  EXPECT_EQ(Posts()[0].mObject, nullptr);
  EXPECT_EQ(Posts()[0].mUserInfo, nullptr);
  EXPECT_EQ(Posts()[0].mOptions, 3u);
}

TEST_F(Preferences, AStoragesNotificationPassesItsFlagAndDataOn) {
  CASettingsStorage storage("/nonexistent/settings", 0, kCFPropertyListXMLFormat_v1_0, false, true);
  const CACFDictionary info(true);
  storage.SendNotification(CFSTR("one"), info.GetCFDictionary(), false);
  storage.SendNotification(CFSTR("two"), nullptr, true);
  ASSERT_EQ(Posts().size(), 2u);
  EXPECT_EQ(Posts()[0].mName, "one");
  EXPECT_EQ(Posts()[0].mUserInfo, info.GetCFDictionary());
  EXPECT_EQ(Posts()[0].mOptions, 1u);
  EXPECT_EQ(Posts()[1].mName, "two");
  EXPECT_EQ(Posts()[1].mUserInfo, nullptr);
  EXPECT_EQ(Posts()[1].mOptions, 3u);
}

}  // namespace
}  // namespace tembra::test
