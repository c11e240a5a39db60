// SPDX-License-Identifier: MIT
// All tables are exported as CSV.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr char kExport[] = "dm_read_all_tabs_from_db";
constexpr char kTableExport[] = "dm_export_by_table";
const std::string kLineEnd("\r\n\0", 3);
const std::string kHeader = "key,len,type,value," + kLineEnd;
constexpr std::size_t kLineSize = 512;

struct DatabaseCloser {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Connection = std::unique_ptr<sqlite3, DatabaseCloser>;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Connection open(const char* path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path, &db), SQLITE_OK);
  return Connection(db);
}

std::string little_endian(std::int32_t number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

class CsvExportTest : public testing::Test {
 protected:
  // The lines of an export, each without its end.
  static std::vector<std::string> exported_lines() {
    const std::string text = read_file(DB_EXPORT_CSV);
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = text.find(kLineEnd); end != std::string::npos; end = text.find(kLineEnd, start)) {
      lines.push_back(text.substr(start, end - start));
      start = end + kLineEnd.size();
    }
    EXPECT_EQ(start, text.size()) << "the file does not end with a line end";
    return lines;
  }

  int run_export(const char* path = DB_CONFIG) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = dm_read_all_tabs_from_db(path);
    printed = testing::internal::GetCapturedStdout();
    complained = testing::internal::GetCapturedStderr();
    return result;
  }

  // The file after an export of one row, the header taken off.
  std::string export_row(const std::string& key, int type, const std::string& value) {
    EXPECT_EQ(dm_write_db(DB_CONFIG, "NET_TAB", 1, key.c_str(), static_cast<std::uint32_t>(type),
                          value.data(), static_cast<int>(value.size())),
              0);
    return export_rows();
  }

  std::string export_rows() {
    log.clear();
    EXPECT_EQ(run_export(), 0);
    const std::string text = read_file(DB_EXPORT_CSV);
    EXPECT_EQ(text.substr(0, kHeader.size()), kHeader);
    return text.substr(kHeader.size());
  }

  // The same for a row whose cells are given as SQL, in a table that takes anything.
  std::string export_cells(const std::string& cells) {
    execute_sql(DB_CONFIG,
                "create table NET_TAB (key,len,type,value); insert into NET_TAB values(" + cells + ");");
    return export_rows();
  }

  LogCapture log;
  std::string printed;
  std::string complained;
};

// --- Lines -------------------------------------------------------------------------------------------------

TEST_F(CsvExportTest, ANumber) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_SCALAR3, little_endian(7)), "k,4,3,7," + kLineEnd);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kTableExport, "value:7\n"), 1) << log.dump();
}

TEST_F(CsvExportTest, NegativeNumbers) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_SCALAR4, little_endian(-1203)), "k,4,4,-1203," + kLineEnd);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kTableExport, "value:-1203\n"), 1) << log.dump();
}

TEST_F(CsvExportTest, TheSmallestNumber) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_SCALAR3, little_endian(INT32_MIN)), "k,4,3,-2147483648," + kLineEnd);
}

TEST_F(CsvExportTest, AText) {
  EXPECT_EQ(export_row("SSID", KELO_DM_TYPE_STRING, "home"), "SSID,4,5,home," + kLineEnd);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "value:"), 0) << log.dump();
}

// Everything but a text is exported as the number in its first four bytes.
TEST_F(CsvExportTest, ABuffer) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_BUFFER, "\x01\x02\0\0trailing"s), "k,12,6,513," + kLineEnd);
}

TEST_F(CsvExportTest, AValueOfLessThanFourBytesIsFilledWithZeros) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_SCALAR1, "\xFF"), "k,1,1,255," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_SCALAR2, "\xFF\xFF\xFF"), "k,3,2,16777215," + kLineEnd);
}

TEST_F(CsvExportTest, AnEmptyNumber) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_SCALAR3, ""), "k,0,3,0," + kLineEnd);
}

TEST_F(CsvExportTest, AnEmptyText) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_STRING, ""), "k,0,5,," + kLineEnd);
}

TEST_F(CsvExportTest, MissingValues) {
  EXPECT_EQ(export_cells("'k',4,3,null"), "k,4,3,0," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_cells("'k',4,5,null"), "k,4,5,," + kLineEnd);
}

TEST_F(CsvExportTest, MissingCells) { EXPECT_EQ(export_cells("null,null,null,null"), ",0,0,0," + kLineEnd); }

// --- Keys --------------------------------------------------------------------------------------------------

TEST_F(CsvExportTest, KeysOfUpTo31BytesAreWritten) {
  const std::string key(31, 'k');
  EXPECT_EQ(export_row(key, KELO_DM_TYPE_SCALAR3, little_endian(7)), key + ",4,3,7," + kLineEnd);
}

TEST_F(CsvExportTest, AnEmptyKeyIsAnEmptyField) {
  EXPECT_EQ(export_row("", KELO_DM_TYPE_SCALAR3, little_endian(7)), ",4,3,7," + kLineEnd);
}

// Such a key is in the length's place, where it is too long for a length: the length is written in the
// type's place, and the type in the value's.
TEST_F(CsvExportTest, ALongerKeyMovesTheColumns) {
  EXPECT_EQ(export_row(std::string(32, 'k'), KELO_DM_TYPE_SCALAR3, little_endian(7)),
            "4," + std::to_string('3') + "," + kLineEnd);
}

TEST_F(CsvExportTest, ALongerKeyWithALengthThatLooksLikeATextsType) {
  EXPECT_EQ(export_row(std::string(33, 'k'), KELO_DM_TYPE_STRING, "cabin"), "5,," + kLineEnd);
}

// The length of a key is its bytes, not its characters.
TEST_F(CsvExportTest, AKeyOfManyBytesInFewCharactersIsLong) {
  EXPECT_EQ(
      export_row("\xC3\xA4" + std::string(29, 'k'), KELO_DM_TYPE_SCALAR3, little_endian(7)).substr(0, 3),
      "\xC3\xA4k");
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(
      export_row("\xC3\xA4" + std::string(30, 'k'), KELO_DM_TYPE_SCALAR3, little_endian(7)).substr(0, 2),
      "4,");
}

// --- Lengths and types -------------------------------------------------------------------------------------

TEST_F(CsvExportTest, ALengthOfFourDigitsIsWritten) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_BUFFER, little_endian(7) + std::string(9995, 'x')),
            "k,9999,6,7," + kLineEnd);
}

TEST_F(CsvExportTest, ALengthOfFiveDigitsIsLeftOut) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_BUFFER, little_endian(7) + std::string(9996, 'x')),
            "k,6,7," + kLineEnd);
}

// Without its length nothing of a text is written.
TEST_F(CsvExportTest, ATextWhoseLengthIsLeftOut) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_STRING, std::string(10'000, 't')), "k,5,," + kLineEnd);
}

TEST_F(CsvExportTest, LengthsAreMeasuredAsText) {
  EXPECT_EQ(export_cells("'k',-999,3,x'07000000'"), "k,-999,3,7," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_cells("'k',-1000,3,x'07000000'"), "k,3,7," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_cells("'k','four',3,x'07000000'"), "k,0,3,7," + kLineEnd);
}

TEST_F(CsvExportTest, ATypeOfFiveDigitsIsLeftOut) {
  EXPECT_EQ(export_row("k", 9999, little_endian(7)), "k,4,9999,7," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_row("k", 10000, little_endian(7)), "k,4,7," + kLineEnd);
}

TEST_F(CsvExportTest, ATextEndsWithItsLengthOrItsBytes) {
  EXPECT_EQ(export_cells("'k',3,5,x'636162696E'"), "k,3,5,cab," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_cells("'k',99,5,x'636162696E'"), "k,99,5,cabin," + kLineEnd);
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(export_cells("'k',-1,5,x'636162696E'"), "k,-1,5,," + kLineEnd);
}

// --- Texts -------------------------------------------------------------------------------------------------

TEST_F(CsvExportTest, NothingIsQuoted) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_STRING, "a,b\r\n\"c\";"), "k,9,5,a,b\r\n\"c\";," + kLineEnd);
}

TEST_F(CsvExportTest, ANulByteInATextIsWritten) {
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_STRING, "a\0b"s), "k,3,5,a\0b,"s + kLineEnd);
}

struct LongText {
  const char* name;
  std::size_t length;
};

void PrintTo(const LongText& text, std::ostream* out) { *out << text.name; }

class LongTextTest : public CsvExportTest, public testing::WithParamInterface<LongText> {};

TEST_P(LongTextTest, ALineEndsAfter512Bytes) {
  const std::size_t length = GetParam().length;
  const std::string text(length, 't');
  const std::string whole = "k," + std::to_string(length) + ",5," + text + ",";
  const std::string line = export_row("k", KELO_DM_TYPE_STRING, text);
  EXPECT_EQ(line, whole.substr(0, kLineSize - kLineEnd.size()) + kLineEnd);
  EXPECT_LE(line.size(), kLineSize);
}

// "k,500,5," and the comma after the text take nine bytes, the line end three.
INSTANTIATE_TEST_SUITE_P(Lengths, LongTextTest,
                         testing::Values(LongText{"OneLess", 499}, LongText{"Exactly", 500},
                                         LongText{"CommaCut", 501}, LongText{"TextCut", 502},
                                         LongText{"Buffer", 512}, LongText{"MuchLonger", 9999}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(CsvExportTest, ALineAfterACutOneIsWhole) {
  const std::string text(600, 't');
  ASSERT_EQ(dm_write_db(DB_CONFIG, "NET_TAB", 1, "long", KELO_DM_TYPE_STRING, text.data(), 600), 0);
  ASSERT_EQ(dm_write_db(DB_CONFIG, "NET_TAB", 2, "short", KELO_DM_TYPE_STRING, "home", 4), 0);
  const std::string lines = export_rows();
  EXPECT_EQ(lines.substr(kLineSize), "short,4,5,home," + kLineEnd);
}

// --- Whole databases ---------------------------------------------------------------------------------------

TEST_F(CsvExportTest, AnEmptyDatabaseYieldsTheHeader) {
  EXPECT_EQ(run_export(), 0);
  EXPECT_EQ(read_file(DB_EXPORT_CSV), kHeader);
  EXPECT_EQ(printed, "Operation done successfully\n");
  EXPECT_EQ(complained, "");
  EXPECT_THAT(log.lines(), IsEmpty()) << log.dump();
}

TEST_F(CsvExportTest, TablesFollowOneAnotherInTheOrderOfTheirCreation) {
  const std::uint32_t version = SQL_VER;
  ASSERT_EQ(dm_write_db(DB_CONFIG, "B_TAB", 1, "first", KELO_DM_TYPE_STRING, "a", 1), 0);
  ASSERT_EQ(dm_write_db(DB_CONFIG, SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, 3, &version, 4), 0);
  ASSERT_EQ(dm_write_db(DB_CONFIG, "A_TAB", 2, "third", KELO_DM_TYPE_STRING, "c", 1), 0);
  ASSERT_EQ(dm_write_db(DB_CONFIG, "B_TAB", 3, "second", KELO_DM_TYPE_STRING, "b", 1), 0);
  EXPECT_EQ(run_export(), 0);
  EXPECT_THAT(exported_lines(), ElementsAre("key,len,type,value,", "first,1,5,a,", "second,1,5,b,",
                                            "SQL_VER_KEY,4,3,65537,", "third,1,5,c,"));
  EXPECT_EQ(printed, "Operation done successfully\n");
}

TEST_F(CsvExportTest, AnExportReplacesTheOneBefore) {
  write_file(DB_EXPORT_CSV, "an older export");
  EXPECT_EQ(export_row("k", KELO_DM_TYPE_STRING, "home"), "k,4,5,home," + kLineEnd);
  EXPECT_EQ(export_rows(), "k,4,5,home," + kLineEnd);
}

TEST_F(CsvExportTest, TheDefaultsCanBeExportedToo) {
  ASSERT_EQ(dm_write_def_db("NET_TAB", "SSID", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(run_export(DB_DEF_ITEMS), 0);
  EXPECT_THAT(exported_lines(), ElementsAre("key,len,type,value,", "SSID,4,5,home,"));
}

TEST_F(CsvExportTest, IndexesAndViewsAreNoTables) {
  execute_sql(DB_CONFIG,
              "create table NET_TAB (key,len,type,value); insert into NET_TAB values('k',4,3,x'07000000');"
              "create index keys on NET_TAB (key); create view copies as select key from NET_TAB;");
  EXPECT_EQ(export_rows(), "k,4,3,7," + kLineEnd);
}

// --- Failures ----------------------------------------------------------------------------------------------

TEST_F(CsvExportTest, ANullPath) {
  write_file(DB_EXPORT_CSV, "stays");
  EXPECT_EQ(run_export(nullptr), DM_SQLITE_FAILED);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, kExport, "dm_read_all_tabs_from_db NULL\n"), 1);
  EXPECT_EQ(read_file(DB_EXPORT_CSV), "stays");
  EXPECT_EQ(printed + complained, "");
}

TEST_F(CsvExportTest, ADatabaseThatCannotBeOpened) {
  write_file(DB_EXPORT_CSV, "stays");
  EXPECT_EQ(run_export("/data/missing/config.db"), DM_SQLITE_NOT_OPENED);
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, kExport, "sqlite3_open failed: unable to open database file\n"), 1);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "/data/missing/config.db: No such file or directory"), 1);
  EXPECT_EQ(read_file(DB_EXPORT_CSV), "stays");
  EXPECT_EQ(printed + complained, "");
}

TEST_F(CsvExportTest, AFileThatIsNoDatabase) {
  make_no_database(DB_CONFIG);
  EXPECT_EQ(run_export(), 0);
  EXPECT_EQ(complained, "SQL error: file is not a database\n");
  EXPECT_EQ(printed, "");
  EXPECT_EQ(read_file(DB_EXPORT_CSV), kHeader);
}

TEST_F(CsvExportTest, ACsvFileThatCannotBeOpened) {
  ASSERT_TRUE(std::filesystem::create_directory(DB_EXPORT_CSV));
  EXPECT_EQ(run_export(), 4);
  EXPECT_EQ(printed + complained, "");
  std::strcpy(DB_EXPORT_CSV, "/data/missing/ExportCSV.csv");
  EXPECT_EQ(run_export(), 4);
}

// --- The parts of an export --------------------------------------------------------------------------------

TEST_F(CsvExportTest, ATableNeedsANameAndAFile) {
  const Connection db = open(DB_CONFIG);
  EXPECT_EQ(dm_export_by_table(db.get(), nullptr, stdout), 3);
  EXPECT_EQ(dm_export_by_table(db.get(), "NET_TAB", nullptr), 3);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kTableExport, "dm_export_by_table param NULL\n"), 2) << log.dump();
}

TEST_F(CsvExportTest, ATableAlone) {
  ASSERT_EQ(dm_write_db(DB_CONFIG, "NET_TAB", 1, "k", KELO_DM_TYPE_STRING, "home", 4), 0);
  ASSERT_EQ(dm_write_db(DB_CONFIG, "OTHER_TAB", 1, "other", KELO_DM_TYPE_STRING, "home", 4), 0);
  const Connection db = open(DB_CONFIG);
  {
    const std::unique_ptr<std::FILE, FileCloser> out(std::fopen("/tmp/table.csv", "w"));
    const CallTrace trace;
    EXPECT_EQ(dm_export_by_table(db.get(), "NET_TAB", out.get()), 0);
    EXPECT_EQ(trace.count("sqlite3_prepare_v2", "select key, len, type, value from NET_TAB"), 1)
        << trace.dump();
  }
  EXPECT_EQ(read_file("/tmp/table.csv"), "k,4,5,home," + kLineEnd);
}

TEST_F(CsvExportTest, TheCallbackAppendsEachTableNamed) {
  ASSERT_EQ(dm_write_db(DB_CONFIG, "NET_TAB", 1, "k", KELO_DM_TYPE_STRING, "home", 4), 0);
  ASSERT_EQ(dm_write_db(DB_CONFIG, "OTHER_TAB", 1, "other", KELO_DM_TYPE_STRING, "home", 4), 0);
  write_file(DB_EXPORT_CSV, "before|");
  const Connection db = open(DB_CONFIG);
  char first[] = "OTHER_TAB";
  char second[] = "NET_TAB";
  char* tables[] = {first, nullptr, second};
  EXPECT_EQ(dm_sqlite_db2csv_cb(db.get(), 3, tables, nullptr), 0);
  EXPECT_EQ(read_file(DB_EXPORT_CSV), "before|other,4,5,home," + kLineEnd + "k,4,5,home," + kLineEnd);
}

TEST_F(CsvExportTest, TheCallbackWithoutItsFileDoesNothing) {
  ASSERT_TRUE(std::filesystem::create_directory(DB_EXPORT_CSV));
  const Connection db = open(DB_CONFIG);
  char table[] = "MISSING_TAB";  // fatal, if it were looked for
  char* tables[] = {table};
  EXPECT_EQ(dm_sqlite_db2csv_cb(db.get(), 1, tables, nullptr), 0);
  EXPECT_THAT(log.lines(), IsEmpty()) << log.dump();
}

TEST_F(CsvExportTest, AMissingTableEndsTheProcess) {
  const ChildResult child = run_in_child([] {
    const Connection db = open(DB_CONFIG);
    dm_export_by_table(db.get(), "MISSING_TAB", stderr);
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.standard_output, MatchesRegex("sqlite3/src/kelo_dm_sqlite\\.c, line: [0-9]+\n"));
  EXPECT_EQ(child.standard_error, "");
}

TEST_F(CsvExportTest, ATableWithoutTheColumnsEndsTheProcess) {
  execute_sql(DB_CONFIG, "create table NET_TAB (key,len,type);");
  const ChildResult child = run_in_child([] { dm_read_all_tabs_from_db(DB_CONFIG); });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.standard_output, MatchesRegex("sqlite3/src/kelo_dm_sqlite\\.c, line: [0-9]+\n"));
}

}  // namespace
