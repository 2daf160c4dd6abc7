#include "ostrel/TableCell.h"

#include "zel/ValueImp.h"

namespace ostrel5 {

struct TableCell::Block {
  TableHolder table;
  zel::Table::Cell const *cell;
  unsigned short row;
  unsigned short column;
  unsigned short rowSpan;
  unsigned short colSpan;
};

TableCell::TableCell(TableHolder const &table, unsigned short row, unsigned short column)
    : m_imp(new Block{table, nullptr, row, column, 1, 1}) {
  m_imp->cell = &table->getCell(row, column);
  table->getCellSpans(row, column, m_imp->rowSpan, m_imp->colSpan);
}

TableCell::TableCell(TableCell const &other) : m_imp(new Block(*other.m_imp)) {}

TableCell &TableCell::operator=(TableCell const &other) {
  if (this != &other) {
    Block *fresh = new Block(*other.m_imp);
    delete m_imp;
    m_imp = fresh;
  }
  return *this;
}

TableCell::~TableCell() { delete m_imp; }

unsigned short TableCell::getRow() const { return m_imp->row; }
unsigned short TableCell::getColumn() const { return m_imp->column; }
unsigned short TableCell::getRowSpan() const { return m_imp->rowSpan; }
unsigned short TableCell::getColSpan() const { return m_imp->colSpan; }
bool TableCell::isHeader() const { return m_imp->cell->isHeader(); }
bool TableCell::hasData() const { return m_imp->cell->hasData(); }

TableCell::CELL_DATA_ALIGNMENT TableCell::getAlignment() const {
  return static_cast<CELL_DATA_ALIGNMENT>(m_imp->cell->getAlignment());
}

zel::String const &TableCell::getIdentifierString() const {
  return m_imp->cell->getIdentifierString();
}

zel::String TableCell::toString() const {
  zel::String out;
  m_imp->cell->toString(out);
  return out;
}

Value TableCell::getValue() const { return Value(zel::ValueImp(m_imp->cell->getValue())); }

} // namespace ostrel5
