#include "zel/Table.h"

#include <algorithm>

#include "zel/AssertionFailure.h"

namespace zel {

char const *Table::Exception::className() const noexcept { return "zel::Table::Exception"; }

bool Table::Cell::toString(String &out) const {
  out = m_value.toString();
  return hasData();
}

bool operator==(Table::Cell const &a, Table::Cell const &b) noexcept {
  return a.m_row == b.m_row && a.m_col == b.m_col && a.m_rowSpan == b.m_rowSpan &&
         a.m_colSpan == b.m_colSpan && a.m_header == b.m_header && a.m_alignment == b.m_alignment &&
         a.m_value == b.m_value && a.m_identifier == b.m_identifier;
}

bool operator==(Table const &a, Table const &b) noexcept {
  return a.m_rows == b.m_rows && a.m_cols == b.m_cols && a.m_slots == b.m_slots;
}

Table::Table(unsigned short rows, unsigned short columns) : m_rows(rows), m_cols(columns) {
  m_slots.resize(static_cast<std::size_t>(rows) * columns);
  for (unsigned short r = 0; r < rows; ++r)
    for (unsigned short c = 0; c < columns; ++c) {
      Cell &cell = m_slots[slot(r, c)];
      cell.m_row = r;
      cell.m_col = c;
    }
  rebuildAnchors();
}

void Table::checkPosition(unsigned short row, unsigned short column) const {
  ZEL_ASSERT(row < m_rows && column < m_cols);
}

void Table::rebuildAnchors() {
  m_anchors.clear();
  for (std::size_t i = 0; i < m_slots.size(); ++i)
    if (m_slots[i].m_rowSpan != 0)
      m_anchors.push_back(i);
}

Table::Cell const &Table::getCell(unsigned short row, unsigned short column) const {
  checkPosition(row, column);
  Cell const &here = m_slots[slot(row, column)];
  return here.m_rowSpan != 0 ? here : m_slots[slot(here.m_row, here.m_col)];
}

Table::Cell &Table::getCell(unsigned short row, unsigned short column) {
  return const_cast<Cell &>(static_cast<Table const &>(*this).getCell(row, column));
}

void Table::getCellSpans(unsigned short row, unsigned short column, unsigned short &rowSpan,
                         unsigned short &colSpan) const {
  Cell const &cell = getCell(row, column);
  rowSpan = cell.m_rowSpan;
  colSpan = cell.m_colSpan;
}

bool Table::getCellPosition(unsigned int index, unsigned short &row, unsigned short &column) const {
  if (index >= m_anchors.size())
    return false;
  Cell const &cell = m_slots[m_anchors[index]];
  row = cell.m_row;
  column = cell.m_col;
  return true;
}

unsigned short Table::appendRow() {
  if (m_rows == 0xFFFF)
    throw Exception("A table cannot have more than 65535 rows");
  unsigned short row = m_rows;
  for (unsigned short c = 0; c < m_cols; ++c) {
    Cell cell;
    cell.m_row = row;
    cell.m_col = c;
    m_slots.push_back(cell);
    m_anchors.push_back(m_slots.size() - 1);
  }
  ++m_rows;
  return row;
}

Table::Cell &Table::setCell(unsigned short row, unsigned short column, ZELValue const &value,
                            bool header) {
  if (row >= m_rows || column >= m_cols)
    throw Exception(
        String::format("Cell (%u, %u) is outside a table of %u x %u", row, column, m_rows, m_cols));
  Cell &cell = getCell(row, column);
  cell.m_value = value;
  cell.m_header = header;
  return cell;
}

void Table::setCellSpans(unsigned short row, unsigned short column, unsigned short rowSpan,
                         unsigned short colSpan) {
  if (row >= m_rows || column >= m_cols)
    throw Exception(
        String::format("Cell (%u, %u) is outside a table of %u x %u", row, column, m_rows, m_cols));
  Cell &anchor = m_slots[slot(row, column)];
  if (anchor.m_rowSpan == 0)
    throw Exception(String::format("Position (%u, %u) lies inside the cell at (%u, %u)", row,
                                   column, anchor.m_row, anchor.m_col));
  if (rowSpan == 0 || colSpan == 0 || row + rowSpan > m_rows || column + colSpan > m_cols)
    throw Exception(String::format("A span of %u x %u at (%u, %u) does not fit a table of %u x %u",
                                   rowSpan, colSpan, row, column, m_rows, m_cols));

  // Check the whole new area before changing anything, so a refused merge
  // leaves the table as it was.
  for (unsigned r = row; r < unsigned(row) + rowSpan; ++r)
    for (unsigned c = column; c < unsigned(column) + colSpan; ++c) {
      if (r == row && c == column)
        continue;
      Cell const &s = m_slots[slot(static_cast<unsigned short>(r), static_cast<unsigned short>(c))];
      bool ownCover = s.m_rowSpan == 0 && s.m_row == row && s.m_col == column;
      if (ownCover)
        continue;
      if (s.m_rowSpan != 1 || s.m_colSpan != 1)
        throw Exception(String::format("A span at (%u, %u) would cut into the cell at (%u, %u)",
                                       row, column, s.m_row, s.m_col));
      if (s.hasData())
        throw Exception(String::format("A span at (%u, %u) would absorb the value of cell (%u, %u)",
                                       row, column, r, c));
    }

  // Split the old area into fresh empty cells, then claim the new one.
  for (unsigned r = row; r < unsigned(row) + anchor.m_rowSpan; ++r)
    for (unsigned c = column; c < unsigned(column) + anchor.m_colSpan; ++c) {
      if (r == row && c == column)
        continue;
      Cell fresh;
      fresh.m_row = static_cast<unsigned short>(r);
      fresh.m_col = static_cast<unsigned short>(c);
      m_slots[slot(fresh.m_row, fresh.m_col)] = fresh;
    }
  for (unsigned r = row; r < unsigned(row) + rowSpan; ++r)
    for (unsigned c = column; c < unsigned(column) + colSpan; ++c) {
      if (r == row && c == column)
        continue;
      Cell covered;
      covered.m_row = row;
      covered.m_col = column;
      covered.m_rowSpan = 0;
      covered.m_colSpan = 0;
      m_slots[slot(static_cast<unsigned short>(r), static_cast<unsigned short>(c))] = covered;
    }
  anchor.m_rowSpan = rowSpan;
  anchor.m_colSpan = colSpan;
  rebuildAnchors();
}

// ---------------------------------------------------------------- rendering

namespace {

// The text of a cell on one line.
String lineText(Table::Cell const &cell) {
  String text = cell.getValue().toString();
  for (char &ch : text.str())
    if (ch == '\n' || ch == '\r' || ch == '\t')
      ch = ' ';
  return text;
}

bool alignsRight(Table::Cell const &cell) {
  switch (cell.getAlignment()) {
  case Table::ALIGN_RIGHT:
    return true;
  case Table::ALIGN_DEFAULT: {
    ZELValue::Kind k = cell.getValue().kind();
    return cell.getValue().isInteger() || k == ZELValue::DOUBLE;
  }
  default:
    return false;
  }
}

void appendAligned(String &out, Table::Cell const &cell, String const &text, std::size_t width) {
  std::size_t len = text.charCount();
  std::size_t pad = width > len ? width - len : 0;
  std::size_t left = 0;
  if (cell.getAlignment() == Table::ALIGN_CENTER)
    left = pad / 2;
  else if (alignsRight(cell))
    left = pad;
  out.str().append(left, ' ');
  out += text;
  out.str().append(pad - left, ' ');
}

} // namespace

bool Table::renderText(String &out) const {
  out = String();
  if (m_rows == 0 || m_cols == 0)
    return true;

  std::vector<String> texts(m_slots.size());
  std::vector<std::size_t> width(m_cols, 0);
  for (std::size_t i : m_anchors) {
    texts[i] = lineText(m_slots[i]);
    if (m_slots[i].m_colSpan == 1)
      width[m_slots[i].m_col] = std::max(width[m_slots[i].m_col], texts[i].charCount());
  }
  // Merged cells widen their columns only as far as they need, narrowest
  // merges first, spreading the shortfall evenly (leftmost columns take the
  // remainder).
  std::vector<std::size_t> merged;
  for (std::size_t i : m_anchors)
    if (m_slots[i].m_colSpan > 1)
      merged.push_back(i);
  std::stable_sort(merged.begin(), merged.end(), [this](std::size_t a, std::size_t b) {
    return m_slots[a].m_colSpan < m_slots[b].m_colSpan;
  });
  for (std::size_t i : merged) {
    Cell const &cell = m_slots[i];
    std::size_t have = 3 * (cell.m_colSpan - 1u);
    for (unsigned c = cell.m_col; c < unsigned(cell.m_col) + cell.m_colSpan; ++c)
      have += width[c];
    std::size_t need = texts[i].charCount();
    if (need > have) {
      std::size_t deficit = need - have;
      for (unsigned k = 0; k < cell.m_colSpan; ++k)
        width[cell.m_col + k] += deficit / cell.m_colSpan + (k < deficit % cell.m_colSpan ? 1 : 0);
    }
  }

  std::size_t lineWidth = 1;
  for (std::size_t w : width)
    lineWidth += w + 3;
  if ((2 * std::size_t(m_rows) + 1) * (lineWidth + 1) > MAX_RENDERED_SIZE)
    return false;

  auto covering = [this](unsigned r, unsigned c) -> Cell const & {
    return getCell(static_cast<unsigned short>(r), static_cast<unsigned short>(c));
  };
  // A vertical line at column boundary k inside row r.
  auto edge = [&](unsigned r, unsigned k) {
    return k == 0 || k == m_cols || &covering(r, k - 1) != &covering(r, k);
  };
  // The horizontal segment of column c on the line above row r (r == m_rows:
  // the bottom line): 0 for none, else its character.
  auto segment = [&](unsigned r, unsigned c) -> char {
    if (r != 0 && r != m_rows && &covering(r - 1, c) == &covering(r, c))
      return 0;
    return r != 0 && covering(r - 1, c).m_header ? '=' : '-';
  };

  String result;
  result.str().reserve((2 * std::size_t(m_rows) + 1) * (lineWidth + 1));
  for (unsigned r = 0; r <= m_rows; ++r) {
    // The line above row r.
    for (unsigned k = 0; k <= m_cols; ++k) {
      char left = k > 0 ? segment(r, k - 1) : 0;
      char right = k < m_cols ? segment(r, k) : 0;
      bool vertical = (r > 0 && edge(r - 1, k)) || (r < m_rows && edge(r, k));
      char junction = ' ';
      if (vertical && (left || right))
        junction = '+';
      else if (vertical)
        junction = '|';
      else if (left || right)
        junction = left ? left : right;
      result += junction;
      if (k < m_cols)
        result.str().append(width[k] + 2, right ? right : ' ');
    }
    result += '\n';
    if (r == m_rows)
      break;
    // Row r itself.
    result += '|';
    for (unsigned c = 0; c < m_cols;) {
      Cell const &cell = covering(r, c);
      unsigned end = unsigned(cell.m_col) + cell.m_colSpan;
      std::size_t inner = 3 * (end - c - 1);
      for (unsigned k = c; k < end; ++k)
        inner += width[k];
      result += ' ';
      if (cell.m_row == r)
        appendAligned(result, cell, texts[slot(cell.m_row, cell.m_col)], inner);
      else
        result.str().append(inner, ' ');
      result += " |";
      c = end;
    }
    result += '\n';
  }
  out = std::move(result);
  return true;
}

namespace {
void appendEscaped(String &out, String const &text) {
  for (char ch : text.str()) {
    switch (ch) {
    case '&':
      out += "&amp;";
      break;
    case '<':
      out += "&lt;";
      break;
    case '>':
      out += "&gt;";
      break;
    case '"':
      out += "&quot;";
      break;
    case '\'':
      out += "&#39;";
      break;
    default:
      out += ch;
    }
  }
}
} // namespace

bool Table::renderHTML(String &out) const {
  out = String();
  if (m_rows == 0 || m_cols == 0)
    return true;
  static char const *const alignStyle[] = {"", " style=\"text-align:left\"",
                                           " style=\"text-align:center\"",
                                           " style=\"text-align:right\""};
  String result("<table>\n");
  for (unsigned short r = 0; r < m_rows; ++r) {
    result += "<tr>";
    for (unsigned short c = 0; c < m_cols; ++c) {
      Cell const &cell = m_slots[slot(r, c)];
      if (cell.m_rowSpan == 0)
        continue;
      char const *tag = cell.m_header ? "th" : "td";
      result += '<';
      result += tag;
      if (cell.m_rowSpan > 1)
        result += String::format(" rowspan=\"%u\"", cell.m_rowSpan);
      if (cell.m_colSpan > 1)
        result += String::format(" colspan=\"%u\"", cell.m_colSpan);
      result += alignStyle[cell.m_alignment <= ALIGN_RIGHT ? unsigned(cell.m_alignment) : 0u];
      result += '>';
      appendEscaped(result, cell.m_value.toString());
      result += "</";
      result += tag;
      result += '>';
      if (result.size() > MAX_RENDERED_SIZE)
        return false;
    }
    result += "</tr>\n";
  }
  result += "</table>\n";
  if (result.size() > MAX_RENDERED_SIZE)
    return false;
  out = std::move(result);
  return true;
}

// --------------------------------------------------------------- difference

namespace {

bool isHeaderRow(Table const &t, unsigned short r) {
  if (t.columns() == 0)
    return false;
  for (unsigned short c = 0; c < t.columns(); ++c)
    if (!t.getCell(r, c).isHeader())
      return false;
  return true;
}

bool sameRow(Table const &a, unsigned short ra, Table const &b, unsigned short rb) {
  for (unsigned short c = 0; c < a.columns(); ++c) {
    Table::Cell const &x = a.getCell(ra, c);
    Table::Cell const &y = b.getCell(rb, c);
    if (x.getValue() != y.getValue() || (x.getColumn() == c) != (y.getColumn() == c) ||
        x.getColSpan() != y.getColSpan())
      return false;
  }
  return true;
}

// Appends row r of src to out: column merges kept, row merges repeated.
void copyRow(Table &out, Table const &src, unsigned short r) {
  unsigned short row = out.appendRow();
  for (unsigned short c = 0; c < src.columns(); ++c) {
    Table::Cell const &cell = src.getCell(r, c);
    if (cell.getColumn() != c)
      continue;
    if (cell.getColSpan() > 1)
      out.setCellSpans(row, c, 1, cell.getColSpan());
    Table::Cell &copy = out.setCell(row, c, cell.getValue(), cell.isHeader());
    copy.setAlignment(cell.getAlignment());
    copy.setIdentifierString(cell.getIdentifierString());
  }
}

Table withHeaders(Table const &src, std::vector<unsigned short> const &headers) {
  Table out(0, src.columns());
  for (unsigned short r : headers)
    copyRow(out, src, r);
  return out;
}

} // namespace

bool Table::diffAgainst(Table const &other, Table &first, Table &second, Array<Table> &third,
                        int option) const {
  if (m_cols != other.m_cols)
    throw Exception(String::format(
        "Cannot compare a table of %u column(s) with one of %u column(s)", m_cols, other.m_cols));
  if (option >= 0 && option >= int(m_cols))
    return false;

  std::vector<unsigned short> curHeaders, curRows, oldHeaders, oldRows;
  for (unsigned short r = 0; r < m_rows; ++r)
    (isHeaderRow(*this, r) ? curHeaders : curRows).push_back(r);
  for (unsigned short r = 0; r < other.m_rows; ++r)
    (isHeaderRow(other, r) ? oldHeaders : oldRows).push_back(r);

  // partner[i]: index into oldRows paired with curRows[i], or -1.
  std::vector<long> partner(curRows.size(), -1);
  std::vector<bool> oldPaired(oldRows.size(), false);
  if (option < 0) {
    for (std::size_t i = 0; i < curRows.size() && i < oldRows.size(); ++i) {
      partner[i] = long(i);
      oldPaired[i] = true;
    }
  } else {
    unsigned short key = static_cast<unsigned short>(option);
    for (std::size_t i = 0; i < curRows.size(); ++i) {
      ZELValue const &k = getCell(curRows[i], key).getValue();
      for (std::size_t j = 0; j < oldRows.size(); ++j)
        if (!oldPaired[j] && other.getCell(oldRows[j], key).getValue() == k) {
          partner[i] = long(j);
          oldPaired[j] = true;
          break;
        }
    }
  }

  Table removed, added;
  bool anyRemoved = false, anyAdded = false;
  Array<Table> changed;
  for (std::size_t j = 0; j < oldRows.size(); ++j)
    if (!oldPaired[j]) {
      if (!anyRemoved)
        removed = withHeaders(other, oldHeaders);
      anyRemoved = true;
      copyRow(removed, other, oldRows[j]);
    }
  for (std::size_t i = 0; i < curRows.size(); ++i) {
    if (partner[i] < 0) {
      if (!anyAdded)
        added = withHeaders(*this, curHeaders);
      anyAdded = true;
      copyRow(added, *this, curRows[i]);
    } else if (!sameRow(*this, curRows[i], other, oldRows[std::size_t(partner[i])])) {
      Table pair = withHeaders(*this, curHeaders);
      copyRow(pair, other, oldRows[std::size_t(partner[i])]);
      copyRow(pair, *this, curRows[i]);
      changed.append(std::move(pair));
    }
  }

  first = std::move(removed);
  second = std::move(added);
  third = std::move(changed);
  return true;
}

} // namespace zel
