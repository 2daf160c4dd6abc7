#include "ostrel/TableList.h"

#include "zel/AssertionFailure.h"

namespace ostrel5 {

struct TableList::Block {
  typedef zel::SharedResource<zel::PointerStorage<zel::Array<Table>, 0, 3>, 1> Holder;
  Holder tables;
};

TableList::TableList() : m_imp(new Block{Block::Holder(new zel::Array<Table>())}) {}

TableList::TableList(zel::Array<zel::Table> const &tables)
    : m_imp(new Block{Block::Holder(new zel::Array<Table>(tables.size()))}) {
  for (zel::Table const &table : tables)
    m_imp->tables->append(Table(table));
}

TableList::TableList(TableList const &other) : m_imp(new Block(*other.m_imp)) {}

TableList &TableList::operator=(TableList const &other) {
  if (this != &other) {
    Block *fresh = new Block(*other.m_imp);
    delete m_imp;
    m_imp = fresh;
  }
  return *this;
}

TableList::~TableList() { delete m_imp; }

unsigned short TableList::size() const {
  return static_cast<unsigned short>(m_imp->tables->size());
}

Table const &TableList::getIndex(unsigned short index) const {
  ZEL_ASSERT(index < size());
  return (*m_imp->tables)[index];
}

} // namespace ostrel5
