#pragma once
// ostrel5::TableList: an array of tables shared by every copy of the list.
//
// The list holds one pointer to a private heap block with a locked shared
// holder of a zel::Array<Table>; copies (constructor and operator=) refer to
// the same array. Sizes and indexes are 16 bits wide, unlike the other list
// classes. An index at or past size() is the assertion "index < size()".

#include "ostrel/Table.h"
#include "zel/Array.h"
#include "zel/Resources.h"

namespace ostrel5 {

class TableList {
public:
  /// An empty list.
  TableList();
  /// One new Table per entry, in order.
  TableList(zel::Array<zel::Table> const &tables);
  TableList(TableList const &other);
  TableList &operator=(TableList const &other);
  ~TableList();

  unsigned short size() const;
  Table const &getIndex(unsigned short index) const;

private:
  struct Block;
  Block *m_imp;
};

} // namespace ostrel5
