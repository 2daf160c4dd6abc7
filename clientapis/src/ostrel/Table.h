#pragma once
// ostrel5::Table: a read-only view of a table value.
//
// A Table holds one pointer to a private heap block with three locked shared
// holders: the zel::Table, its text rendering and its HTML rendering. Copies
// make a new block sharing all three, so a copy is the same table under a
// second name.
//
// Renderings are made on first request and kept in the block's holder. A
// copy taken before the first request has empty holders of its own and
// renders separately; a copy taken after it shares the string. A rendering
// that fails is logged once ("Unable to render table as string", priority 5,
// "libOstrel.Table") and is cached as the empty text: it is not tried again.
// The cache has no lock: two threads asking one Table object for its first
// rendering at once race; copies on different threads are fine.
//
// Cell addresses are checked against the dimensions: an address outside the
// table is logged on "DEFECT.GENERIC" (priority 4) and thrown as
// InvalidCellException.

#include "ostrel/InvalidCellException.h"
#include "ostrel/TableCell.h"
#include "zel/Resources.h"
#include "zel/String.h"
#include "zel/Table.h"

namespace ostrel5 {

class TableList;

class Table {
public:
  /// A new empty table (0 rows, 0 columns).
  Table();
  /// A new zel::Table copied from the argument.
  Table(zel::Table const &table);
  Table(Table const &other);
  Table &operator=(Table const &other);
  ~Table();

  unsigned short getRows() const;
  unsigned short getCols() const;
  /// Cells that exist: fewer than rows x columns where cells are merged.
  unsigned int getCellCount() const;
  /// The cell at that position; InvalidCellException outside the table.
  TableCell getCell(unsigned short row, unsigned short column) const;
  /// The cell with that index (zel::Table's reading order);
  /// InvalidCellException past the last cell.
  TableCell getCellAtIndex(unsigned int index) const;
  zel::String const &toText() const;
  zel::String const &toHTML() const;
  zel::Table const &getZELTable() const;

  /// Compares this (current) table with `other` (earlier) by the rule of
  /// zel::Table::diffAgainst, `option` handed on unchanged. `first` and
  /// `second` receive the two difference tables, written straight into their
  /// zel::Table (their rendering caches are not reset and cells taken from
  /// them before are no longer valid: pass fresh Tables);
  /// `third` is replaced by the list of further tables only when the result
  /// is true. Tables that cannot be compared give false, with a log line on
  /// "DEFECT.GENERIC" showing both tables; no exception leaves.
  bool diffAgainst(Table const &other, Table &first, Table &second, TableList &third,
                   int option) const;

private:
  struct Block;
  zel::String const &rendered(bool html) const;

  Block *m_imp;
};

} // namespace ostrel5
