// SPDX-License-Identifier: MIT
// keloctl settings export, import and clean.
#include <gmock/gmock.h>

#include "tests/support/keloctl.hpp"

namespace {

using namespace kelo::tests;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kExported[] =
    "table,key,id,type,hex\n"
    "lan,name,7,5,686f6d65\n"
    "net,apn,7,5,696e7465726e6574\n"
    "net,key,13,6,01ff007f\n"
    "net,mtu,7,5,31353030\n"
    "net,size,12,3,78050000\n";

class KeloctlTransfer : public KeloctlTest {
 protected:
  static Ran import(const std::string& text) {
    write_file("/tmp/import.csv", text);
    return keloctl("settings import /tmp/import.csv");
  }
};

TEST_F(KeloctlTransfer, ExportPrintsWhatIsStored) {
  const auto before = files();
  EXPECT_EQ(keloctl("settings export"), (Ran{0, kExported, ""}));
  EXPECT_EQ(
      keloctl("settings export lan --json"),
      (Ran{
          0,
          R"({"items":[{"table":"lan","key":"name","id":7,"type":5,"hex":"686f6d65"}],"ok":true,"error":null})"
          "\n",
          ""}));
  EXPECT_EQ(keloctl("settings export lan --tsv"),
            (Ran{0, "item\tlan\tname\t7\t5\t686f6d65\nok\ttrue\nerror\t\n", ""}));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlTransfer, ExportLeavesDamagedValuesOut) {
  damage_value(DB_CONFIGBAK);
  const Ran ran = keloctl("settings export net");
  EXPECT_EQ(ran.status, 4);
  EXPECT_THAT(ran.output, StartsWith("table,key,id,type,hex\nnet,key,"));
  EXPECT_EQ(ran.errors, complaint("1 values do not match their checksums and are left out"));
}

TEST_F(KeloctlTransfer, ImportRestoresACleanedStore) {
  ASSERT_EQ(keloctl("settings clean"),
            (Ran{0, "The settings are deleted. Running daemons are not told.\n", ""}));
  EXPECT_FALSE(file_exists(DB_CONFIG));
  EXPECT_FALSE(file_exists(DB_CONFIGBAK));
  EXPECT_EQ(import(kExported),
            (Ran{0,
                 "stored      5\nunchanged   0\n"
                 "Running daemons are not told: they use the values when they next read them.\n",
                 ""}));
  EXPECT_EQ(keloctl("settings export"), (Ran{0, kExported, ""}));
  EXPECT_EQ(keloctl("store status").status, 0);
}

TEST_F(KeloctlTransfer, ImportWritesOnlyWhatDiffers) {
  const auto before = files();
  EXPECT_EQ(import(kExported), (Ran{0, "stored      0\nunchanged   5\n", ""}));
  EXPECT_EQ(files(), before);
  EXPECT_EQ(import("table,key,id,type,hex\r\nnet,apn,7,5,6e6577\r\nnet,off,20,5,6f6e").status, 0);
  EXPECT_EQ(get("apn"), "new");
  EXPECT_EQ(get("off"), "on");
}

TEST_F(KeloctlTransfer, ImportStoresNothingOfAWrongFile) {
  const auto before = files();
  const struct {
    const char* line;
    const char* wrong;
  } cases[] = {
      {"net,apn,7,5", "the value is not in hexadecimal digits"},
      {"net,apn,7,5,6x", "the value is not in hexadecimal digits"},
      {"net,apn,7,5,", "the value is not in hexadecimal digits"},
      {"net,apn,7,7,00", "it is not table, key, id, type and value"},
      {"net,apn,-1,5,00", "it is not table, key, id, type and value"},
      {"net,apn,x,5,00", "it is not table, key, id, type and value"},
      {"net,apn", "it is not table, key, id, type and value"},
      {"net,apn,7,6,00", "the setting has another type"},
      {"net,a'b,7,5,00", "the names are not plain names"},
      {"SQL_VER_TAB,SQL_VER_KEY,65537,3,01000000", "the version record is no setting"},
  };
  for (const auto& file : cases)
    EXPECT_EQ(
        import("table,key,id,type,hex\nnet,mtu,7,5,39\n" + std::string(file.line) + "\n"),
        (Ran{2, "",
             complaint(std::string("/tmp/import.csv: line 3: ") + file.wrong + "; nothing was stored")}))
        << file.line;
  EXPECT_EQ(
      import("net,mtu,7,5,39\n"),
      (Ran{2, "", complaint("/tmp/import.csv: line 1: it does not name the columns; nothing was stored")}));
  EXPECT_EQ(keloctl("settings import /tmp/none"),
            (Ran{3, "", complaint("/tmp/none cannot be read: No such file or directory")}));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlTransfer, ImportTakesBackWhatItStoredWhenTheFlashIsFull) {
  write_file("/data/filler", std::string(600000, 'x'));
  std::string big = "table,key,id,type,hex\nnet,mtu,7,5,39\nnet,apn,7,5,";
  for (int i = 0; i < 300000; ++i) big += "79";
  const Ran ran = import(big + "\n");
  EXPECT_EQ(ran.status, 3) << ran;
  EXPECT_THAT(ran.errors, HasSubstr("keloctl: net.apn was not stored: "));
  EXPECT_EQ(get("mtu"), "1500");
  EXPECT_EQ(get("apn"), "internet");
}

TEST_F(KeloctlTransfer, ReadOnlyStoreIsKept) {
  for (const auto& entry : std::filesystem::directory_iterator("/data")) chmod(entry.path().c_str(), 0444);
  chmod("/data", 0555);
  const auto before = files();
  EXPECT_EQ(keloctl("settings clean").status, 3);
  EXPECT_EQ(import("table,key,id,type,hex\nnet,mtu,7,5,39\n").status, 3);
  EXPECT_EQ(keloctl("settings export"), (Ran{0, kExported, ""}));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlTransfer, LockedStoreIsATimeOut) {
  const StoreHolder holder;
  EXPECT_EQ(keloctl("settings export").status, 5);
  EXPECT_EQ(keloctl("settings clean").status, 5);
  EXPECT_TRUE(file_exists(DB_CONFIG));
}

TEST_F(KeloctlTransfer, CleanKeepsACopyOnRequest) {
  for (const auto& entry : std::filesystem::directory_iterator("/mnt/vendor/nvdata"))
    std::filesystem::remove(entry.path());
  const std::string before = read_file(DB_CONFIG);
  EXPECT_EQ(keloctl("settings clean --keep-copy --json"), (Ran{0, "{\"ok\":true,\"error\":null}\n", ""}));
  EXPECT_FALSE(file_exists(DB_CONFIG));
  int copies = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/mnt/vendor/nvdata")) {
    ++copies;
    EXPECT_THAT(entry.path().string(), EndsWith(".db1"));
    EXPECT_EQ(read_file(entry.path()), before);
  }
  EXPECT_EQ(copies, 1);
}

TEST_F(KeloctlTransfer, MissingStoreIsNotCleaned) {
  remove_store();
  const auto before = files();
  EXPECT_EQ(keloctl("settings clean"), (Ran{1, "", complaint("there is no store")}));
  EXPECT_EQ(keloctl("settings export").status, 1);
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlTransfer, ImportsWhileFourDaemonsWrite) {
  const DaemonsThatWrite daemons;
  const Ran ran = import("table,key,id,type,hex\nnet,mtu,7,5,31323030\nlan,name,7,5,6f6666696365\n");
  EXPECT_EQ(ran.status, 0) << ran;
  EXPECT_EQ(keloctl("settings export lan"),
            (Ran{0, "table,key,id,type,hex\nlan,name,7,5,6f6666696365\n", ""}));
  EXPECT_EQ(keloctl("settings get net.mtu"), (Ran{0, "1200\n", ""}));
}

}  // namespace
