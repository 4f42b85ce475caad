// Exports of the trail: CSV for spreadsheets, and JSON lines that can be verified.
#include "relay/storage/trail/text/export.h"

#include <string>
#include <vector>

#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/text/lines.h"
#include "relay/storage/trail/trail_fixture.h"

namespace vlk::relay {
namespace {

class ExportTest : public TrailTest {
 protected:
  std::string exported(TrailFormat format, const TrailFilter& filter = {}) {
    TrailExport made(*database, *key, format, filter);
    std::string text;
    while (!made.ended())
      text += made.next();
    return text;
  }

  void append_rows(int count) {
    std::vector<TrailEntry> entries;
    for (int i = 1; i <= count; ++i)
      entries.push_back(
          trail_entry<TrailKind::FolderListed>({i % 2 ? "anna" : "björn", "m1", "192.0.2.7:1", i},
                                               "C:\\a \"b\",\\,\"fields\":" + std::to_string(i), i));
    append(entries);
  }

  TrailVerdict verify(const std::string& text, bool with_key = true) {
    folder->write("export.jsonl", text);
    return verify_export((folder->path() / "export.jsonl").string(),
                         with_key ? std::optional(key->public_part()) : std::nullopt);
  }

  // The text with the first occurrence of `from` replaced.
  static std::string changed(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
  }

  static std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find('\n', at) + 1;
      lines.push_back(text.substr(at, end - at));
      at = end;
    }
    return lines;
  }

  static std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
      text += line;
    return text;
  }
};

TEST_F(ExportTest, CsvGuardsFormulasAndQuotes) {
  append({trail_entry<TrailKind::LoginFailed>({.actor = "=HYPERLINK(\"x\")", .address = "@1"}, "a,\"b\"\n"),
          trail_entry<TrailKind::LoginFailed>({.actor = "-2+3"}, "x")});
  const auto all = rows();
  const auto cells = [&](std::size_t i) {
    return std::to_string(all[i].id) + ',' + iso_time(all[i].entry.time_ms) + ",\"login.failed\",";
  };
  EXPECT_EQ(exported(TrailFormat::Csv),
            "id,time,code,actor,machine,address,session,fields,hash\r\n" + cells(0) +
                R"csv("'=HYPERLINK(""x"")","","'@1",,"{""step"":""a,\""b\""\n""}",)csv" +
                to_hex(all[0].hash) + "\r\n" + cells(1) + R"csv("'-2+3","","",,"{""step"":""x""}",)csv" +
                to_hex(all[1].hash) + "\r\n");
}

TEST_F(ExportTest, IsMadeInPiecesAndVerifies) {
  append_rows(1700);
  sign();
  TrailExport made(*database, *key, TrailFormat::JsonLines, {});
  std::string text;
  std::size_t pieces = 0;
  for (; !made.ended(); ++pieces) {
    const std::string piece = made.next();
    EXPECT_LT(piece.size(), 400'000u);
    text += piece;
  }
  EXPECT_GE(pieces, 5u);
  for (const bool with_key : {true, false}) {
    const TrailVerdict verdict = verify(text, with_key);
    EXPECT_TRUE(verdict.intact) << verdict.problem;
    EXPECT_EQ(verdict.rows, 1700);
    EXPECT_EQ(verdict.signed_through, 1700);
  }
}

TEST_F(ExportTest, VerificationNamesTheChangedLine) {
  append_rows(20);
  sign();
  const std::string text = exported(TrailFormat::JsonLines);
  const std::string row5 = lines_of(text).at(6);
  ASSERT_NE(row5.find("\"id\":5,"), std::string::npos);
  // Each byte of a row, changed alone.
  for (std::size_t i = 0; i + 1 < row5.size(); ++i) {
    std::string other = row5;
    other[i] = static_cast<char>(other[i] ^ 1);
    const TrailVerdict verdict = verify(changed(text, row5, other));
    EXPECT_FALSE(verdict.intact) << other;
    EXPECT_TRUE(verdict.row == 5 || (i < 10 && verdict.row)) << verdict.problem << '\n' << other;
  }
}

TEST_F(ExportTest, VerificationNamesRowsThatAreMissingOrSwapped) {
  append_rows(20);
  sign();
  const auto lines = lines_of(exported(TrailFormat::JsonLines));
  auto missing = lines;
  missing.erase(missing.begin() + 6);
  EXPECT_EQ(verify(joined(missing)).row, 5);
  auto swapped = lines;
  std::swap(swapped[6], swapped[9]);
  EXPECT_EQ(verify(joined(swapped)).row, 5);
  auto cut = lines;
  cut.resize(15);
  EXPECT_FALSE(verify(joined(cut)).intact);
  auto twice = lines;
  twice.insert(twice.begin() + 6, lines[6]);
  EXPECT_FALSE(verify(joined(twice)).intact);
  auto headless = lines;
  headless.erase(headless.begin() + 1);
  EXPECT_FALSE(verify(joined(headless)).intact);
}

TEST_F(ExportTest, FilteredExportVerifiesToo) {
  append_rows(20);
  const std::string text = exported(TrailFormat::JsonLines, {.person = "björn"});
  const TrailVerdict verdict = verify(text);
  EXPECT_TRUE(verdict.intact) << verdict.problem;
  EXPECT_EQ(verdict.rows, 10);
  EXPECT_EQ(verify(changed(text, "\"count\":6", "\"count\":7")).row, 6);
  auto lines = lines_of(text);
  lines.erase(lines.begin() + 3);
  EXPECT_FALSE(verify(joined(lines)).intact);
}

TEST_F(ExportTest, ExportWithoutItsLastLineIsNotIntact) {
  append_rows(20);
  sign();
  for (const TrailFilter& filter : {TrailFilter{}, TrailFilter{.person = "björn"}}) {
    auto lines = lines_of(exported(TrailFormat::JsonLines, filter));
    lines.pop_back();
    const TrailVerdict verdict = verify(joined(lines));
    EXPECT_FALSE(verdict.intact);
    EXPECT_EQ(verdict.problem, "The export has no end: it was cut off.");
  }
}

TEST_F(ExportTest, AnotherKeyIsNoticed) {
  append_rows(3);
  const std::string text = exported(TrailFormat::JsonLines);
  folder->write("export.jsonl", text);
  EXPECT_FALSE(verify_export((folder->path() / "export.jsonl").string(), Bytes(32)).intact);
}

TEST_F(ExportTest, RowsAloneVerifyAsACollectorsFile) {
  append_rows(20);
  std::string text;
  for (const TrailRow& row : rows()) {
    if (row.id > 5) text += row_line(row) + '\n';
  }
  EXPECT_TRUE(verify(text).intact) << verify(text).problem;
  EXPECT_EQ(verify(changed(text, "\"count\":9", "\"count\":8")).row, 9);
}

TEST_F(ExportTest, EndsWithAnErrorWhenItsRowsAreRemoved) {
  append_rows(1200);
  TrailExport made(*database, *key, TrailFormat::JsonLines, {});
  EXPECT_FALSE(made.next().empty());
  EXPECT_FALSE(made.next().empty());
  Transaction transaction(*database);
  (void)shorten_trail(*database, *key, trail_now() + 1000, 900);
  transaction.commit();
  EXPECT_THROW((void)made.next(), DatabaseError);
}

}  // namespace
}  // namespace vlk::relay
