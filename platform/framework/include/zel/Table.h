#pragma once
// zel::Table: a two-dimensional table of scalar values with merged cells.
//
// Shape. A table has `rows` x `columns` positions. Every position is covered
// by exactly one cell. A cell is anchored at its top-left position and spans
// rowSpan x colSpan positions (1 x 1 unless merged). getCell(row, column) on
// any covered position gives the cell that covers it, and getCellSpans the
// spans of that cell; a cell's own getRow()/getColumn() give its anchor.
// getCellCount() counts cells, not positions, so it is rows x columns minus
// what merging absorbed.
//
// Cell index. Cells are numbered 0 .. getCellCount()-1 in reading order of
// their anchors (row by row, left to right); getCellPosition maps an index to
// the anchor position.
//
// Building. Table(rows, columns) makes 1 x 1 empty cells; appendRow adds a
// row of them. setCell fills a cell; setCellSpans merges: the area must lie
// inside the table, must not cut into another merged cell, and the cells it
// absorbs must hold no data (merge first, then fill: silently dropping a
// value would hide a producer's mistake). Setting the spans back to 1 x 1
// splits the cell again into empty cells. Building errors throw
// Table::Exception. Reading a position outside the table is a caller's
// error and fails the assertion "row < m_rows && column < m_cols".
//
// References to cells stay valid until the table's shape changes (appendRow,
// setCellSpans, assignment).
//
// Rendering. renderText draws a box table: "+", "-" and "|" frame, "="
// under header cells, one line per row (line breaks and tabs inside a value
// become blanks), a merged cell's text in its first row, widths in code
// points. ALIGN_DEFAULT puts numbers on the right and everything else on the
// left. renderHTML writes one <tr> per row and one <td> (or <th> for header
// cells) per cell, with rowspan/colspan when above 1, a text-align style
// for explicit alignments, and the text escaped (& < > " '). Both give the
// empty text for a table without rows or columns, and both refuse (false,
// output empty) when the result would exceed MAX_RENDERED_SIZE characters:
// such a rendering is of no use to anyone reading it and would pin that much
// memory in every cache that keeps it.
//
// Difference (diffAgainst). `this` is the current table, `other` the earlier
// one, and they must have the same number of columns (Table::Exception
// otherwise). Header rows (rows whose every cell is a header cell) are
// context, not data: they are not compared. Data rows are paired either by
// position (option DIFF_BY_POSITION or any negative option: the i-th data row
// of one with the i-th of the other) or by key (option k >= 0: a current row
// pairs with the first still unpaired earlier row whose cell in column k
// holds an equal value). Two paired rows differ when, column by column, the
// covering cells hold different values or the cells are split differently.
// Results:
//   first  - the earlier table's header rows, then its unpaired data rows
//            (removed rows), in earlier order;
//   second - the current table's header rows, then its unpaired data rows
//            (added rows), in current order;
//   third  - one table per paired rows that differ, in current order: the
//            current header rows, then the earlier row, then the current row.
// `first` or `second` is an empty table (0 x 0) when there are no such rows.
// Rows are copied cell by cell: column merges are kept, a cell that spans
// rows is repeated in each of its rows. The result is false, with nothing
// written, when a key column is asked for that the tables do not have.
//
// A plain value type: copies are independent. Thread-compatible.

#include <cstddef>
#include <vector>

#include "zel/Array.h"
#include "zel/Exception.h"
#include "zel/String.h"
#include "zel/ZELValue.h"

namespace zel {

class Table {
public:
  enum CELL_DATA_ALIGNMENT : unsigned int { ALIGN_DEFAULT, ALIGN_LEFT, ALIGN_CENTER, ALIGN_RIGHT };

  /// Building errors and tables that cannot be compared.
  class Exception : public zel::Exception {
  public:
    Exception() = default;
    explicit Exception(String const &message) : zel::Exception(message) {}
    char const *className() const noexcept override;
  };

  class Cell {
  public:
    Cell() = default;

    ZELValue const &getValue() const noexcept { return m_value; }
    bool hasData() const noexcept { return !m_value.isEmpty(); }
    bool isHeader() const noexcept { return m_header; }
    CELL_DATA_ALIGNMENT getAlignment() const noexcept { return m_alignment; }
    /// A producer's name for the cell (a property key, say); empty unless set.
    String const &getIdentifierString() const noexcept { return m_identifier; }
    /// Puts the value's text in `out` (empty when there is no data); true
    /// when the cell has data.
    bool toString(String &out) const;

    unsigned short getRow() const noexcept { return m_row; }
    unsigned short getColumn() const noexcept { return m_col; }
    unsigned short getRowSpan() const noexcept { return m_rowSpan; }
    unsigned short getColSpan() const noexcept { return m_colSpan; }

    void setValue(ZELValue const &value) { m_value = value; }
    void setHeader(bool header) noexcept { m_header = header; }
    void setAlignment(CELL_DATA_ALIGNMENT alignment) noexcept { m_alignment = alignment; }
    void setIdentifierString(String const &identifier) { m_identifier = identifier; }

    friend bool operator==(Cell const &a, Cell const &b) noexcept;
    friend bool operator!=(Cell const &a, Cell const &b) noexcept { return !(a == b); }

  private:
    friend class Table;
    ZELValue m_value;
    bool m_header = false;
    CELL_DATA_ALIGNMENT m_alignment = ALIGN_DEFAULT;
    String m_identifier;
    // Anchor position; for a covered slot, the anchor of the covering cell.
    unsigned short m_row = 0;
    unsigned short m_col = 0;
    // 0 x 0 marks a covered slot.
    unsigned short m_rowSpan = 1;
    unsigned short m_colSpan = 1;
  };

  /// diffAgainst option: pair data rows by position.
  static constexpr int DIFF_BY_POSITION = -1;
  /// Renderings longer than this many characters are refused.
  static constexpr std::size_t MAX_RENDERED_SIZE = 4u * 1024u * 1024u;

  /// 0 rows, 0 columns.
  Table() = default;
  /// rows x columns empty 1 x 1 cells.
  Table(unsigned short rows, unsigned short columns);

  void getDimensions(unsigned short &rows, unsigned short &columns) const noexcept {
    rows = m_rows;
    columns = m_cols;
  }
  unsigned short rows() const noexcept { return m_rows; }
  unsigned short columns() const noexcept { return m_cols; }
  /// Number of cells (merged cells count once).
  unsigned int getCellCount() const noexcept { return static_cast<unsigned int>(m_anchors.size()); }

  /// The cell covering the position.
  Cell const &getCell(unsigned short row, unsigned short column) const;
  Cell &getCell(unsigned short row, unsigned short column);
  /// Spans of the cell covering the position.
  void getCellSpans(unsigned short row, unsigned short column, unsigned short &rowSpan,
                    unsigned short &colSpan) const;
  /// Anchor of the cell with that index (reading order); false past the end.
  bool getCellPosition(unsigned int index, unsigned short &row, unsigned short &column) const;

  /// Adds a row of empty cells at the bottom; returns its index.
  unsigned short appendRow();
  /// Sets the value (and header flag) of the cell covering the position.
  Cell &setCell(unsigned short row, unsigned short column, ZELValue const &value,
                bool header = false);
  /// Merges (or splits) the cell anchored at the position; see the header.
  void setCellSpans(unsigned short row, unsigned short column, unsigned short rowSpan,
                    unsigned short colSpan);

  bool renderText(String &out) const;
  bool renderHTML(String &out) const;

  bool diffAgainst(Table const &other, Table &first, Table &second, Array<Table> &third,
                   int option) const;

  friend bool operator==(Table const &a, Table const &b) noexcept;
  friend bool operator!=(Table const &a, Table const &b) noexcept { return !(a == b); }

private:
  std::size_t slot(unsigned short row, unsigned short column) const noexcept {
    return static_cast<std::size_t>(row) * m_cols + column;
  }
  void checkPosition(unsigned short row, unsigned short column) const;
  void rebuildAnchors();

  unsigned short m_rows = 0;
  unsigned short m_cols = 0;
  std::vector<Cell> m_slots;          // m_rows x m_cols, row-major
  std::vector<std::size_t> m_anchors; // slots of the cells, reading order
};

} // namespace zel
