#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "ostrel/InvalidCellException.h"
#include "ostrel/Table.h"
#include "ostrel/TableCell.h"
#include "ostrel/TableList.h"
#include "zel/Logger.h"

using ostrel5::InvalidCellException;
using ostrel5::Table;
using ostrel5::TableCell;
using ostrel5::TableList;
using zel::String;

static_assert(std::is_base_of<zel::Exception, InvalidCellException>::value,
              "InvalidCellException is a zel::Exception");
static_assert(!std::is_base_of<zel::TypeMismatch, InvalidCellException>::value &&
                  !std::is_base_of<zel::Table::Exception, InvalidCellException>::value,
              "InvalidCellException derives from zel::Exception directly");

namespace {

// Name  | Value        <- header
// Fan   | 1200 (right)
// Temp (2 columns, identifier "temp")
zel::Table sample() {
  zel::Table t(3, 2);
  t.setCell(0, 0, "Name", true);
  t.setCell(0, 1, "Value", true);
  t.setCell(1, 0, "Fan");
  t.setCell(1, 1, 1200u).setAlignment(zel::Table::ALIGN_RIGHT);
  t.setCellSpans(2, 0, 1, 2);
  t.setCell(2, 0, "Temp").setIdentifierString("temp");
  return t;
}

class TableTest : public ::testing::Test {
protected:
  void SetUp() override {
    zel::LogFactory::reset();
    capture = std::make_shared<zel::CaptureAppender>();
    zel::LogFactory::addAppender(capture);
  }
  void TearDown() override { zel::LogFactory::reset(); }

  // Lines of one category, as "priority text".
  std::vector<String> lines(char const *category) const {
    std::vector<String> out;
    for (zel::LogRecord const &r : capture->records())
      if (r.category == category)
        out.push_back(String::fromInt(r.priority) + " " + r.text);
    return out;
  }

  std::shared_ptr<zel::CaptureAppender> capture;
};

String invalidCell(Table const &t, unsigned short row, unsigned short column) {
  try {
    t.getCell(row, column);
  } catch (InvalidCellException const &e) {
    return e.getMessage();
  }
  return "no exception";
}

} // namespace

TEST_F(TableTest, CellAddressesAreCheckedAgainstTheDimensions) {
  Table t(sample());
  EXPECT_EQ(t.getRows(), 3);
  EXPECT_EQ(t.getCols(), 2);
  EXPECT_EQ(t.getCellCount(), 5u);
  EXPECT_NO_THROW(t.getCell(2, 1)); // the last position, inside the merge

  EXPECT_EQ(invalidCell(t, 3, 0),
            "Invalid cell address (row: 3, column: 0) in table that is 3 row(s) and 2 column(s)");
  EXPECT_EQ(invalidCell(t, 0, 2),
            "Invalid cell address (row: 0, column: 2) in table that is 3 row(s) and 2 column(s)");
  EXPECT_EQ(
      lines("DEFECT.GENERIC"),
      (std::vector<String>{
          "4 Requested cell at (row = 3, column = 0), but table is only (row = 3, column = 2)",
          "4 Requested cell at (row = 0, column = 2), but table is only (row = 3, column = "
          "2)"}));

  Table empty;
  EXPECT_EQ(empty.getRows(), 0);
  EXPECT_EQ(empty.getCols(), 0);
  EXPECT_EQ(invalidCell(empty, 0, 0),
            "Invalid cell address (row: 0, column: 0) in table that is 0 row(s) and 0 column(s)");
}

TEST_F(TableTest, CellIndexesFollowTheImplementationOrder) {
  Table t(sample());
  TableCell merged = t.getCellAtIndex(4);
  EXPECT_EQ(merged.getRow(), 2);
  EXPECT_EQ(merged.getColumn(), 0);
  EXPECT_EQ(merged.getColSpan(), 2);
  try {
    t.getCellAtIndex(5);
    FAIL() << "no exception";
  } catch (zel::Exception const &e) { // caught through the base class
    EXPECT_STREQ(e.className(), "ostrel5::InvalidCellException");
    EXPECT_EQ(e.getMessage(), "Invalid cell index 5, maximum is 5");
  }
  EXPECT_TRUE(lines("DEFECT.GENERIC").empty()); // an index miss is not logged
}

TEST_F(TableTest, CellsReportTheirPositionSpansAndData) {
  Table t(sample());
  TableCell header = t.getCell(0, 1);
  EXPECT_TRUE(header.isHeader());
  EXPECT_EQ(header.toString(), "Value");
  EXPECT_EQ(header.getValue().getType(), ostrel5::DataType::STRING());

  TableCell number = t.getCell(1, 1);
  EXPECT_FALSE(number.isHeader());
  EXPECT_TRUE(number.hasData());
  EXPECT_EQ(number.getAlignment(), TableCell::ALIGN_RIGHT);
  EXPECT_EQ(number.getValue().getType(), ostrel5::DataType::UINT32());
  EXPECT_EQ(number.getValue().toUint32(), 1200u);

  // A position inside a merge: the position asked for, the merge's spans.
  TableCell inside = t.getCell(2, 1);
  EXPECT_EQ(inside.getRow(), 2);
  EXPECT_EQ(inside.getColumn(), 1);
  EXPECT_EQ(inside.getRowSpan(), 1);
  EXPECT_EQ(inside.getColSpan(), 2);
  EXPECT_EQ(inside.getIdentifierString(), "temp");
  EXPECT_EQ(inside.getAlignment(), TableCell::ALIGN_DEFAULT);

  zel::Table blank(1, 1);
  TableCell empty = Table(blank).getCell(0, 0);
  EXPECT_FALSE(empty.hasData());
  EXPECT_EQ(empty.toString(), "");
  EXPECT_EQ(empty.getValue().getType().enumValue(), ostrel5::DataType::constantCount());
}

TEST_F(TableTest, ACellOutlivesItsTableHandles) {
  std::unique_ptr<TableCell> cell;
  {
    Table t(sample());
    Table copy(t);
    cell.reset(new TableCell(copy.getCell(1, 0)));
  }
  TableCell again(*cell);
  EXPECT_EQ(again.toString(), "Fan");
  again = *cell;
  EXPECT_EQ(again.getValue().toString(), "Fan");
}

TEST_F(TableTest, RenderingsAreCachedPerBlockAndSharedByLaterCopies) {
  Table t(sample());
  Table early(t);
  String const &text = t.toText();
  EXPECT_EQ(text, "+------+-------+\n"
                  "| Name | Value |\n"
                  "+======+=======+\n"
                  "| Fan  |  1200 |\n"
                  "+------+-------+\n"
                  "| Temp         |\n"
                  "+--------------+\n");
  EXPECT_EQ(&t.toText(), &text); // cached
  Table late(t);
  EXPECT_EQ(&late.toText(), &text);  // shares the rendered string
  EXPECT_NE(&early.toText(), &text); // had an empty holder of its own
  EXPECT_EQ(early.toText(), text);   // ... and rendered the same table

  String const &html = t.toHTML();
  EXPECT_EQ(html, "<table>\n"
                  "<tr><th>Name</th><th>Value</th></tr>\n"
                  "<tr><td>Fan</td><td style=\"text-align:right\">1200</td></tr>\n"
                  "<tr><td colspan=\"2\">Temp</td></tr>\n"
                  "</table>\n");
  EXPECT_NE(&late.toHTML(), &html); // copied before the first HTML request
  Table later(t);
  EXPECT_EQ(&later.toHTML(), &html);
  EXPECT_TRUE(lines("libOstrel.Table").empty());
}

TEST_F(TableTest, AFailedRenderingIsLoggedOnceAndCachedEmpty) {
  zel::Table huge(1, 1);
  huge.setCell(0, 0, String(zel::Table::MAX_RENDERED_SIZE, 'x'));
  Table t(huge);
  EXPECT_EQ(t.toText(), "");
  EXPECT_EQ(t.toText(), "");
  EXPECT_EQ(lines("libOstrel.Table"), (std::vector<String>{"5 Unable to render table as string"}));
  EXPECT_EQ(t.toHTML(), "");
  EXPECT_EQ(lines("libOstrel.Table").size(), 2u); // the HTML holder is separate
}

TEST_F(TableTest, DiffWritesBothTablesAndReplacesTheList) {
  zel::Table earlier = sample();
  zel::Table current = sample();
  current.setCell(1, 1, 1300u);
  Table first, second;
  TableList list;
  TableList alias(list);
  ASSERT_TRUE(Table(current).diffAgainst(Table(earlier), first, second, list, 0));
  EXPECT_EQ(first.getRows(), 0);
  EXPECT_EQ(second.getRows(), 0);
  ASSERT_EQ(list.size(), 1);
  EXPECT_EQ(list.getIndex(0).getRows(), 3); // header, earlier row, current row
  EXPECT_EQ(list.getIndex(0).getCell(2, 1).getValue().toUint32(), 1300u);
  EXPECT_EQ(alias.size(), 0); // a new list was assigned, the old array is untouched
}

TEST_F(TableTest, DiffThatCannotCompareReturnsFalseAndKeepsTheList) {
  TableList list(zel::Array<zel::Table>{zel::Table(6, 1)});
  Table first, second;

  // The implementation refuses (no such key column): no log, list kept.
  Table t(sample());
  EXPECT_FALSE(t.diffAgainst(t, first, second, list, 7));
  ASSERT_EQ(list.size(), 1);
  EXPECT_EQ(list.getIndex(0).getRows(), 6);
  EXPECT_TRUE(lines("DEFECT.GENERIC").empty());

  // The implementation throws (column counts differ): logged with both tables.
  zel::Table narrow(1, 1);
  narrow.setCell(0, 0, "n");
  Table other(narrow);
  EXPECT_FALSE(t.diffAgainst(other, first, second, list, 0));
  EXPECT_EQ(list.getIndex(0).getRows(), 6);
  EXPECT_EQ(lines("DEFECT.GENERIC"),
            (std::vector<String>{"4 Cannot compare a table of 2 column(s) with one of 1 column(s)"
                                 "\nUnable to diff the tables:\nORIGINAL:\n" +
                                 other.toText() + "CURRENT:\n" + t.toText()}));
}

TEST(TableList, CopiesShareOneArrayOfTables) {
  TableList empty;
  EXPECT_EQ(empty.size(), 0);

  zel::Table one(1, 1), two(2, 2);
  TableList list(zel::Array<zel::Table>{one, two});
  ASSERT_EQ(list.size(), 2);
  EXPECT_EQ(list.getIndex(1).getZELTable(), two);
  TableList copy(list);
  EXPECT_EQ(&copy.getIndex(0), &list.getIndex(0));
  empty = list;
  EXPECT_EQ(&empty.getIndex(1), &list.getIndex(1));
  // A list built twice from one array holds distinct tables.
  TableList again(zel::Array<zel::Table>{one, two});
  EXPECT_NE(&again.getIndex(0).getZELTable(), &list.getIndex(0).getZELTable());

  try {
    list.getIndex(2);
    FAIL() << "no assertion";
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(e.getText(), "Assertion failed: index < size()");
  }
}
