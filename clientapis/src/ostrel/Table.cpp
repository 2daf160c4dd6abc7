#include "ostrel/Table.h"

#include "ostrel/TableList.h"
#include "zel/Logger.h"

namespace ostrel5 {

namespace {
typedef zel::SharedResource<zel::PointerStorage<zel::String, 0, 3>, 1> StringHolder;
} // namespace

struct Table::Block {
  typedef zel::SharedResource<zel::PointerStorage<zel::Table, 0, 3>, 1> TableHolder;
  TableHolder table;
  StringHolder text;
  StringHolder html;
};

Table::Table() : m_imp(new Block{Block::TableHolder(new zel::Table()), {}, {}}) {}

Table::Table(zel::Table const &table)
    : m_imp(new Block{Block::TableHolder(new zel::Table(table)), {}, {}}) {}

Table::Table(Table const &other) : m_imp(new Block(*other.m_imp)) {}

Table &Table::operator=(Table const &other) {
  if (this != &other) {
    Block *fresh = new Block(*other.m_imp);
    delete m_imp;
    m_imp = fresh;
  }
  return *this;
}

Table::~Table() { delete m_imp; }

unsigned short Table::getRows() const {
  unsigned short rows = 0, columns = 0;
  m_imp->table->getDimensions(rows, columns);
  return rows;
}

unsigned short Table::getCols() const {
  unsigned short rows = 0, columns = 0;
  m_imp->table->getDimensions(rows, columns);
  return columns;
}

unsigned int Table::getCellCount() const { return m_imp->table->getCellCount(); }

TableCell Table::getCell(unsigned short row, unsigned short column) const {
  unsigned short rows = 0, columns = 0;
  m_imp->table->getDimensions(rows, columns);
  if (row < rows && column < columns)
    return TableCell(m_imp->table, row, column);
  zel::LogFactory::getLogger("DEFECT.GENERIC")
      .logf(4,
            "Requested cell at (row = %u, column = %u), but table is only (row = %u, column = %u)",
            unsigned(row), unsigned(column), unsigned(rows), unsigned(columns));
  throw InvalidCellException(*this, row, column);
}

TableCell Table::getCellAtIndex(unsigned int index) const {
  unsigned short row = 0, column = 0;
  if (m_imp->table->getCellPosition(index, row, column))
    return getCell(row, column);
  throw InvalidCellException(*this, index);
}

zel::String const &Table::rendered(bool html) const {
  StringHolder &holder = html ? m_imp->html : m_imp->text;
  if (!holder.isValid()) {
    zel::String *out = new zel::String();
    bool ok = html ? m_imp->table->renderHTML(*out) : m_imp->table->renderText(*out);
    if (!ok) {
      zel::LogFactory::getLogger("libOstrel.Table").log(5, "Unable to render table as string");
      *out = zel::String();
    }
    holder.reset(out);
  }
  return *holder;
}

zel::String const &Table::toText() const { return rendered(false); }

zel::String const &Table::toHTML() const { return rendered(true); }

zel::Table const &Table::getZELTable() const { return *m_imp->table; }

bool Table::diffAgainst(Table const &other, Table &first, Table &second, TableList &third,
                        int option) const {
  zel::Array<zel::Table> further(8);
  try {
    bool compared = m_imp->table->diffAgainst(*other.m_imp->table, *first.m_imp->table,
                                              *second.m_imp->table, further, option);
    if (compared)
      third = TableList(further);
    return compared;
  } catch (zel::Table::Exception const &e) {
    zel::LogFactory::getLogger("DEFECT.GENERIC")
        .log(4, e.getMessage() + "\nUnable to diff the tables:\nORIGINAL:\n" + other.toText() +
                    "CURRENT:\n" + toText());
    return false;
  }
}

} // namespace ostrel5
