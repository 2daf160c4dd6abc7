#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <set>
#include <utility>

#include "zel/Table.h"

using zel::Array;
using zel::String;
using zel::Table;
using zel::ZELValue;

namespace {

// Sensor | Reading (2 columns)      <- header row
// CPU    | 45   | C (centred)
//  (CPU)  | 50   | C
// Fan    | 1200 | rpm
Table sensorTable() {
  Table t(4, 3);
  t.setCell(0, 0, "Sensor", true);
  t.setCellSpans(0, 1, 1, 2);
  t.setCell(0, 1, "Reading", true);
  t.setCellSpans(1, 0, 2, 1);
  t.setCell(1, 0, "CPU");
  t.setCell(1, 1, 45);
  t.setCell(1, 2, "C").setAlignment(Table::ALIGN_CENTER);
  t.setCell(2, 1, 50);
  t.setCell(2, 2, "C");
  t.setCell(3, 0, "Fan");
  t.setCell(3, 1, 1200u);
  t.setCell(3, 2, "rpm");
  return t;
}

// A table of a header row and one data row per entry: {key, number}.
Table slots(std::vector<std::pair<char const *, int>> const &rows) {
  Table t(0, 2);
  t.appendRow();
  t.setCell(0, 0, "Slot", true);
  t.setCell(0, 1, "Size", true);
  for (auto const &row : rows) {
    unsigned short r = t.appendRow();
    t.setCell(r, 0, row.first);
    t.setCell(r, 1, row.second);
  }
  return t;
}

String text(Table const &t) {
  String out;
  EXPECT_TRUE(t.renderText(out));
  return out;
}

} // namespace

TEST(Table, MergedCellsCoverTheirAreaAndCountOnce) {
  Table t = sensorTable();
  EXPECT_EQ(t.rows(), 4);
  EXPECT_EQ(t.columns(), 3);
  EXPECT_EQ(t.getCellCount(), 10u); // 12 positions, two merges absorbing one each

  // Any position inside a merge gives the merged cell and its spans.
  EXPECT_EQ(&t.getCell(0, 2), &t.getCell(0, 1));
  EXPECT_EQ(&t.getCell(2, 0), &t.getCell(1, 0));
  unsigned short rs = 0, cs = 0;
  t.getCellSpans(2, 0, rs, cs);
  EXPECT_EQ(rs, 2);
  EXPECT_EQ(cs, 1);
  t.getCellSpans(0, 2, rs, cs);
  EXPECT_EQ(rs, 1);
  EXPECT_EQ(cs, 2);
  EXPECT_EQ(t.getCell(0, 2).getColumn(), 1);
  EXPECT_EQ(t.getCell(2, 0).getRow(), 1);

  // Indexes follow the anchors in reading order.
  std::vector<std::pair<unsigned short, unsigned short>> expected = {
      {0, 0}, {0, 1}, {1, 0}, {1, 1}, {1, 2}, {2, 1}, {2, 2}, {3, 0}, {3, 1}, {3, 2}};
  for (unsigned i = 0; i < expected.size(); ++i) {
    unsigned short r = 99, c = 99;
    ASSERT_TRUE(t.getCellPosition(i, r, c)) << i;
    EXPECT_EQ(std::make_pair(r, c), expected[i]) << i;
  }
  unsigned short r = 7, c = 7;
  EXPECT_FALSE(t.getCellPosition(10, r, c));
  EXPECT_EQ(r, 7); // untouched on failure
}

TEST(Table, BadMergesAreRefusedAndLeaveTheTableAsItWas) {
  Table t = sensorTable();
  Table before = t;
  // Leaves the table, cuts into the header merge, absorbs a value, starts
  // inside another merge, zero span.
  EXPECT_THROW(t.setCellSpans(3, 2, 2, 1), Table::Exception);
  EXPECT_THROW(t.setCellSpans(3, 2, 1, 2), Table::Exception);
  EXPECT_THROW(t.setCellSpans(0, 0, 1, 2), Table::Exception);
  EXPECT_THROW(t.setCellSpans(2, 1, 2, 1), Table::Exception);
  EXPECT_THROW(t.setCellSpans(2, 0, 1, 1), Table::Exception);
  EXPECT_THROW(t.setCellSpans(3, 0, 0, 1), Table::Exception);
  EXPECT_THROW(t.setCell(4, 0, 1), Table::Exception);
  EXPECT_EQ(t, before);

  auto message = [&t](unsigned short r, unsigned short c, unsigned short rs, unsigned short cs) {
    try {
      t.setCellSpans(r, c, rs, cs);
    } catch (Table::Exception const &e) {
      return e.getMessage();
    }
    return String("accepted");
  };
  EXPECT_EQ(message(3, 2, 2, 1), "A span of 2 x 1 at (3, 2) does not fit a table of 4 x 3");
  EXPECT_EQ(message(2, 1, 2, 1), "A span at (2, 1) would absorb the value of cell (3, 1)");
  EXPECT_EQ(message(0, 0, 1, 2), "A span at (0, 0) would cut into the cell at (0, 1)");
}

TEST(Table, ReadingOutsideTheTableIsAnAssertion) {
  Table t(2, 2);
  try {
    t.getCell(2, 0);
    FAIL() << "no assertion";
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(e.getText(), "Assertion failed: row < m_rows && column < m_cols");
  }
  EXPECT_THROW(Table().getCell(0, 0), zel::StructuredException);
}

TEST(Table, AMergeCanGrowShrinkAndSplitAgain) {
  Table t(2, 3);
  t.setCellSpans(0, 0, 2, 2);
  EXPECT_EQ(t.getCellCount(), 3u);
  t.setCell(0, 0, "big");
  // Shrinking frees the positions it no longer covers as empty cells.
  t.setCellSpans(0, 0, 1, 2);
  EXPECT_EQ(t.getCellCount(), 5u);
  EXPECT_FALSE(t.getCell(1, 0).hasData());
  EXPECT_EQ(t.getCell(1, 1).getColSpan(), 1);
  // Growing over its own area and fresh cells works; the value stays.
  t.setCellSpans(0, 0, 2, 3);
  EXPECT_EQ(t.getCellCount(), 1u);
  EXPECT_EQ(t.getCell(1, 2).getValue(), ZELValue("big"));
  t.setCellSpans(0, 0, 1, 1);
  EXPECT_EQ(t, [] {
    Table expected(2, 3);
    expected.setCell(0, 0, "big");
    return expected;
  }());
}

// Random merges never break the covering: every position is covered by
// exactly one cell, the cells' areas add up to the table, and index and
// position agree both ways.
RC_GTEST_PROP(TableProperty, RandomMergesKeepTheCoveringConsistent, ()) {
  auto rows = *rc::gen::inRange<unsigned short>(1, 7);
  auto cols = *rc::gen::inRange<unsigned short>(1, 7);
  Table t(rows, cols);
  auto attempts = *rc::gen::container<std::vector<std::array<unsigned short, 4>>>(
      rc::gen::container<std::array<unsigned short, 4>>(rc::gen::inRange<unsigned short>(0, 7)));
  for (auto const &a : attempts) {
    try {
      t.setCellSpans(a[0], a[1], a[2], a[3]);
    } catch (Table::Exception const &) {
    }
  }
  unsigned area = 0;
  std::set<Table::Cell const *> seen;
  for (unsigned i = 0; i < t.getCellCount(); ++i) {
    unsigned short r = 0, c = 0;
    RC_ASSERT(t.getCellPosition(i, r, c));
    Table::Cell const &cell = t.getCell(r, c);
    RC_ASSERT(cell.getRow() == r && cell.getColumn() == c);
    area += unsigned(cell.getRowSpan()) * cell.getColSpan();
    seen.insert(&cell);
  }
  RC_ASSERT(area == unsigned(rows) * cols);
  for (unsigned short r = 0; r < rows; ++r)
    for (unsigned short c = 0; c < cols; ++c) {
      Table::Cell const &cell = t.getCell(r, c);
      RC_ASSERT(seen.count(&cell) == 1u);
      RC_ASSERT(r >= cell.getRow() && r < cell.getRow() + cell.getRowSpan());
      RC_ASSERT(c >= cell.getColumn() && c < cell.getColumn() + cell.getColSpan());
    }
}

TEST(Table, TextRenderingDrawsMergesHeadersAndAlignment) {
  EXPECT_EQ(text(sensorTable()), "+--------+------------+\n"
                                 "| Sensor | Reading    |\n"
                                 "+========+======+=====+\n"
                                 "| CPU    |   45 |  C  |\n"
                                 "|        +------+-----+\n"
                                 "|        |   50 | C   |\n"
                                 "+--------+------+-----+\n"
                                 "| Fan    | 1200 | rpm |\n"
                                 "+--------+------+-----+\n");
}

TEST(Table, AMergedCellWiderThanItsColumnsWidensThemEvenly) {
  Table t(2, 2);
  t.setCellSpans(0, 0, 1, 2);
  t.setCell(0, 0, "abcdefghij"); // 10 wide over 1 + 3 + 1: 5 short, 3 and 2
  t.setCell(1, 0, "x");
  t.setCell(1, 1, "y");
  t.getCell(1, 1).setAlignment(Table::ALIGN_RIGHT);
  EXPECT_EQ(text(t), "+------------+\n"
                     "| abcdefghij |\n"
                     "+------+-----+\n"
                     "| x    |   y |\n"
                     "+------+-----+\n");
}

TEST(Table, WidthsCountCharactersAndLineBreaksBecomeBlanks) {
  Table t(1, 2);
  t.setCell(0, 0, "\xc3\xa9t\xc3\xa9"); // "été": 3 characters, 5 bytes
  t.setCell(0, 1, "a\nb");
  EXPECT_EQ(text(t), "+-----+-----+\n"
                     "| \xc3\xa9t\xc3\xa9 | a b |\n"
                     "+-----+-----+\n");
}

TEST(Table, HtmlRenderingWritesSpansHeadersAlignmentAndEscapes) {
  String html;
  ASSERT_TRUE(sensorTable().renderHTML(html));
  EXPECT_EQ(html, "<table>\n"
                  "<tr><th>Sensor</th><th colspan=\"2\">Reading</th></tr>\n"
                  "<tr><td rowspan=\"2\">CPU</td><td>45</td>"
                  "<td style=\"text-align:center\">C</td></tr>\n"
                  "<tr><td>50</td><td>C</td></tr>\n"
                  "<tr><td>Fan</td><td>1200</td><td>rpm</td></tr>\n"
                  "</table>\n");

  Table risky(1, 1);
  risky.setCell(0, 0, "<b>\"Tom\" & 'Jerry'</b>");
  ASSERT_TRUE(risky.renderHTML(html));
  EXPECT_EQ(html, "<table>\n<tr><td>&lt;b&gt;&quot;Tom&quot; &amp; &#39;Jerry&#39;&lt;/b&gt;"
                  "</td></tr>\n</table>\n");
}

TEST(Table, EmptyTablesRenderAsNothingAndHugeOnesAreRefused) {
  String out("stale");
  EXPECT_TRUE(Table().renderText(out));
  EXPECT_EQ(out, "");
  out = "stale";
  EXPECT_TRUE(Table(0, 4).renderHTML(out));
  EXPECT_EQ(out, "");

  Table huge(1, 1);
  huge.setCell(0, 0, String(Table::MAX_RENDERED_SIZE, 'x'));
  out = "stale";
  EXPECT_FALSE(huge.renderText(out));
  EXPECT_EQ(out, "");
  out = "stale";
  EXPECT_FALSE(huge.renderHTML(out));
  EXPECT_EQ(out, "");
  // Many short rows add up just the same.
  Table tall(0, 1);
  for (int i = 0; i < 60000; ++i)
    tall.setCell(tall.appendRow(), 0, "0123456789012345678901234567890123456789");
  EXPECT_FALSE(tall.renderText(out));
}

// --------------------------------------------------------------- difference

TEST(TableDiff, ByKeyFindsRemovedAddedAndChangedRows) {
  Table earlier = slots({{"A", 4096}, {"B", 8192}, {"C", 2048}});
  Table current = slots({{"A", 4096}, {"C", 4096}, {"D", 1024}});
  Table first, second;
  Array<Table> third{Table(9, 9)};
  ASSERT_TRUE(current.diffAgainst(earlier, first, second, third, 0));
  EXPECT_EQ(first, slots({{"B", 8192}}));
  EXPECT_EQ(second, slots({{"D", 1024}}));
  ASSERT_EQ(third.size(), 1u); // replaced, not appended to
  EXPECT_EQ(third[0], slots({{"C", 2048}, {"C", 4096}}));
}

TEST(TableDiff, ByPositionPairsRowsInOrder) {
  Table earlier = slots({{"A", 4096}, {"B", 8192}, {"C", 2048}});
  Table current = slots({{"A", 4096}, {"C", 4096}});
  Table first, second;
  Array<Table> third;
  ASSERT_TRUE(current.diffAgainst(earlier, first, second, third, Table::DIFF_BY_POSITION));
  EXPECT_EQ(first, slots({{"C", 2048}}));
  EXPECT_EQ(second, Table()); // nothing added
  ASSERT_EQ(third.size(), 1u);
  EXPECT_EQ(third[0], slots({{"B", 8192}, {"C", 4096}}));
}

TEST(TableDiff, EqualTablesHaveNoDifferenceAndDuplicateKeysPairInOrder) {
  Table t = slots({{"A", 1}, {"A", 2}});
  Table first(1, 1), second(1, 1);
  Array<Table> third{Table()};
  ASSERT_TRUE(t.diffAgainst(t, first, second, third, 0));
  EXPECT_EQ(first, Table());
  EXPECT_EQ(second, Table());
  EXPECT_TRUE(third.isEmpty());
}

TEST(TableDiff, RowMergesAreRepeatedAndColumnMergesKept) {
  Table earlier = slots({});
  Table current(3, 2);
  current.setCell(0, 0, "Slot", true);
  current.setCell(0, 1, "Size", true);
  current.setCellSpans(1, 0, 2, 1);
  current.setCell(1, 0, "A");
  current.setCell(1, 1, 1);
  current.setCell(2, 1, 2);
  Table first, second;
  Array<Table> third;
  ASSERT_TRUE(current.diffAgainst(earlier, first, second, third, Table::DIFF_BY_POSITION));
  EXPECT_EQ(second, slots({{"A", 1}, {"A", 2}}));

  Table wide(2, 2);
  wide.setCell(0, 0, "h", true);
  wide.setCell(0, 1, "h", true);
  wide.setCellSpans(1, 0, 1, 2);
  wide.setCell(1, 0, "both");
  Table headerOnly(1, 2);
  headerOnly.setCell(0, 0, "h", true);
  headerOnly.setCell(0, 1, "h", true);
  ASSERT_TRUE(wide.diffAgainst(headerOnly, first, second, third, 0));
  EXPECT_EQ(second, wide);
}

TEST(TableDiff, SplittingDifferentlyIsAChange) {
  Table merged(1, 2), split(1, 2);
  merged.setCellSpans(0, 0, 1, 2);
  merged.setCell(0, 0, "x");
  split.setCell(0, 0, "x");
  Table first, second;
  Array<Table> third;
  ASSERT_TRUE(merged.diffAgainst(split, first, second, third, Table::DIFF_BY_POSITION));
  EXPECT_EQ(third.size(), 1u);
}

TEST(TableDiff, TablesThatCannotBeComparedWriteNothing) {
  Table two = slots({{"A", 1}});
  Table three(1, 3);
  Table first(5, 5), second(6, 6);
  Array<Table> third{Table(7, 7)};
  try {
    two.diffAgainst(three, first, second, third, 0);
    FAIL() << "no exception";
  } catch (Table::Exception const &e) {
    EXPECT_EQ(e.getMessage(), "Cannot compare a table of 2 column(s) with one of 3 column(s)");
  }
  // A key column the tables do not have.
  EXPECT_FALSE(two.diffAgainst(two, first, second, third, 2));
  EXPECT_EQ(first, Table(5, 5));
  EXPECT_EQ(second, Table(6, 6));
  ASSERT_EQ(third.size(), 1u);
  EXPECT_EQ(third[0], Table(7, 7));
}
