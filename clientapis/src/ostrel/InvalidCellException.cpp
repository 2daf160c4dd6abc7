#include "ostrel/InvalidCellException.h"

#include "ostrel/Table.h"

namespace ostrel5 {

InvalidCellException::InvalidCellException(Table const &table, unsigned short row,
                                           unsigned short column)
    : zel::Exception(zel::String::format(
          "Invalid cell address (row: %u, column: %u) in table that is %u row(s) and %u column(s)",
          unsigned(row), unsigned(column), unsigned(table.getRows()), unsigned(table.getCols()))) {}

InvalidCellException::InvalidCellException(Table const &table, unsigned int index)
    : zel::Exception(zel::String::format("Invalid cell index %u, maximum is %u", index,
                                         table.getCellCount())) {}

char const *InvalidCellException::className() const noexcept {
  return "ostrel5::InvalidCellException";
}

} // namespace ostrel5
