#pragma once
// ostrel5::TableCell: a read-only view of one cell of a table.
//
// Only Table makes cells (the constructor is protected). A cell holds a
// private heap block with a shared reference to the owning zel::Table, so it
// stays usable after every Table handle on that table is gone. Copies make a
// new block on the same table. The position is the one asked for; on a
// position inside a merged cell the spans are those of the merged cell.

#include "ostrel/Value.h"
#include "zel/Resources.h"
#include "zel/String.h"
#include "zel/Table.h"

namespace ostrel5 {

class Table;

class TableCell {
public:
  /// Same rows, same numbers as zel::Table::CELL_DATA_ALIGNMENT.
  enum CELL_DATA_ALIGNMENT { ALIGN_DEFAULT, ALIGN_LEFT, ALIGN_CENTER, ALIGN_RIGHT };

  TableCell(TableCell const &other);
  TableCell &operator=(TableCell const &other);
  ~TableCell();

  unsigned short getRow() const;
  unsigned short getColumn() const;
  unsigned short getRowSpan() const;
  unsigned short getColSpan() const;
  bool isHeader() const;
  bool hasData() const;
  CELL_DATA_ALIGNMENT getAlignment() const;
  zel::String const &getIdentifierString() const;
  /// The cell's text (empty when it holds no data).
  zel::String toString() const;
  /// A new Value of the type that the cell's datum has.
  Value getValue() const;

protected:
  friend class Table;
  typedef zel::SharedResource<zel::PointerStorage<zel::Table, 0, 3>, 1> TableHolder;
  TableCell(TableHolder const &table, unsigned short row, unsigned short column);

private:
  struct Block;
  Block *m_imp;
};

} // namespace ostrel5
