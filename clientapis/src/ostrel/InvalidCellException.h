#pragma once
// ostrel5::InvalidCellException: a cell address or cell index outside a
// table. It has no fields of its own; the message names the address asked for
// and the table's size (not the last valid index):
//   "Invalid cell address (row: 3, column: 0) in table that is 3 row(s) and 2 column(s)"
//   "Invalid cell index 5, maximum is 5"

#include "zel/Exception.h"

namespace ostrel5 {

class Table;

class InvalidCellException : public zel::Exception {
public:
  InvalidCellException(Table const &table, unsigned short row, unsigned short column);
  InvalidCellException(Table const &table, unsigned int index);
  char const *className() const noexcept override;
};

} // namespace ostrel5
