#include "muxer/PairRecordStore.h"

#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/fakes/TemporaryFolder.h"
#include "tests/muxer/PairRecordFixtures.h"

namespace ambrel::testing {
namespace {

class PairRecordStoreTest : public ::testing::Test {
protected:
    std::filesystem::path systemFolder() const { return m_folder.path() / "lockdown"; }
    std::filesystem::path ownFolder() const { return m_folder.path() / "data" / "pair-records"; }

    TemporaryFolder m_folder;
};

TEST_F(PairRecordStoreTest, RecordsAreReadForTheirMacAndBuid) {
    const auto record = pairRecordBytes("AA:BB:CC:DD:EE:01", "HOST-BUID");
    EXPECT_EQ(wifiMacOfPairRecord(record), "aa:bb:cc:dd:ee:01");
    EXPECT_EQ(systemBuidOfPairRecord(record), "HOST-BUID");
    EXPECT_FALSE(wifiMacOfPairRecord("not a record"));
    EXPECT_EQ(udidOfSerial("00008110001A2B3C4D5E6F70"), "00008110-001A2B3C4D5E6F70");
    EXPECT_EQ(udidOfSerial("abc"), "abc");
}

TEST_F(PairRecordStoreTest, TheSystemsRecordsComeFirst) {
    writeFile(systemFolder() / "00008110-000A.plist", pairRecordBytes("aa:bb:cc:dd:ee:01", "SYS"));
    writeFile(systemFolder() / "SystemConfiguration.plist", pairRecordBytes("", "SYSTEM-BUID"));
    writeFile(systemFolder() / "notes.txt", "x");
    PairRecordStore store(systemFolder(), ownFolder());
    ASSERT_TRUE(store.keepCopy("00008110-000A", pairRecordBytes("aa:bb:cc:dd:ee:09", "OWN")));
    ASSERT_TRUE(store.keepCopy("00008110-000B", pairRecordBytes("aa:bb:cc:dd:ee:02", "OWN")));
    const auto phones = store.knownPhones();
    ASSERT_EQ(phones.size(), 2u);
    EXPECT_EQ(phones[0].udid, "00008110-000A");
    EXPECT_EQ(phones[0].wifiMac, "aa:bb:cc:dd:ee:01");
    EXPECT_EQ(phones[1].udid, "00008110-000B");
    EXPECT_EQ(phones[1].wifiMac, "aa:bb:cc:dd:ee:02");
    EXPECT_EQ(systemBuidOfPairRecord(*store.record("00008110-000A")), "SYS");
    EXPECT_EQ(systemBuidOfPairRecord(*store.record("00008110-000B")), "OWN");
    EXPECT_EQ(store.systemBuid(), "SYSTEM-BUID");
    EXPECT_FALSE(store.record("00008110-000C"));
    EXPECT_FALSE(store.record("../lockdown/SystemConfiguration"));
}

TEST_F(PairRecordStoreTest, KeptCopiesAreReadableByTheOwnerOnly) {
    PairRecordStore store(systemFolder(), ownFolder());
    ASSERT_TRUE(store.keepCopy("00008110-000B", pairRecordBytes("aa:bb:cc:dd:ee:02", "OWN")));
    store.learnMac("aa:bb:cc:dd:ee:77", "00008110-000B");
    struct stat info {};
    ASSERT_EQ(::stat(ownFolder().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    // The data folder made on the way is as private.
    ASSERT_EQ(::stat(ownFolder().parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ownFolder())) {
        ASSERT_EQ(::stat(entry.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u) << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 2);
    // Without a system record, the host's BUID comes from the kept one.
    EXPECT_EQ(store.systemBuid(), "OWN");
}

TEST_F(PairRecordStoreTest, AFolderThatIsTooOpenIsClosed) {
    std::filesystem::create_directories(ownFolder());
    std::filesystem::permissions(ownFolder(), std::filesystem::perms::all);
    PairRecordStore store(systemFolder(), ownFolder());
    ASSERT_TRUE(store.keepCopy("00008110-000B", pairRecordBytes("aa:bb:cc:dd:ee:02", "OWN")));
    struct stat info {};
    ASSERT_EQ(::stat(ownFolder().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
}

TEST_F(PairRecordStoreTest, AKeptCopyIsWrittenAgainWhenChangedOrRemoved) {
    PairRecordStore store(systemFolder(), ownFolder());
    const auto path = ownFolder() / "00008110-000B.plist";
    const auto first = pairRecordBytes("aa:bb:cc:dd:ee:02", "OWN");
    const auto second = pairRecordBytes("aa:bb:cc:dd:ee:02", "NEWER");
    ASSERT_TRUE(store.keepCopy("00008110-000B", first));
    ASSERT_TRUE(store.keepCopy("00008110-000B", first));
    EXPECT_EQ(systemBuidOfPairRecord(*store.record("00008110-000B")), "OWN");
    ASSERT_TRUE(store.keepCopy("00008110-000B", second));
    EXPECT_EQ(systemBuidOfPairRecord(*store.record("00008110-000B")), "NEWER");
    std::filesystem::remove(path);
    ASSERT_TRUE(store.keepCopy("00008110-000B", second));
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(systemBuidOfPairRecord(*store.record("00008110-000B")), "NEWER");
}

TEST_F(PairRecordStoreTest, LearnedMacsAreRemembered) {
    {
        PairRecordStore store(systemFolder(), ownFolder());
        store.learnMac("AA:BB:CC:DD:EE:77", "00008110-000B");
    }
    PairRecordStore again(systemFolder(), ownFolder());
    const auto learned = again.learnedMacs();
    ASSERT_EQ(learned.size(), 1u);
    EXPECT_EQ(learned.at("aa:bb:cc:dd:ee:77"), "00008110-000B");
}

} // namespace
} // namespace ambrel::testing
