#pragma once
// ostrel5::HandleList<E, I>: the one form of the list classes (DeviceList,
// TestList, ...), and ostrel5::SharedHandle<I, Base>: the common part of the
// handles that hold their implementation object through boost::shared_ptr.
//
// A list is a handle on one shared array of element handles E, held by a
// zel::SharedResource with a locked count. Copying a list (constructor or
// operator=) gives a second reference to the same array, never a deep copy,
// so remove() through any copy is seen by all of them. Building a list from
// an array of implementation pointers makes a new array and a new holder.
//
// A list class is then one line:
//   class DeviceList : public HandleList<Device, zel::IDeviceImp> { using HandleList::HandleList;
//   };
//
// Threads: the count is changed under the holder's mutex, so copies may live
// on different threads; the array itself has no lock, and remove() on a list
// that two threads share is the callers' risk.

#include <utility>

#include <boost/shared_ptr.hpp>

#include "ostrel/ApiWrapper.h"
#include "zel/Array.h"
#include "zel/AssertionFailure.h"
#include "zel/Resources.h"

namespace ostrel5 {

template <class E, class I> class HandleList {
public:
  typedef E element_type;
  typedef I implementation_type;
  typedef zel::SharedResource<zel::PointerStorage<zel::Array<E>, 0, 3>, 1> Holder;

  /// An empty list with an array of its own.
  HandleList() : m_array(new zel::Array<E>()) {}
  /// A new array with one element handle per entry, in the same order.
  explicit HandleList(zel::Array<boost::shared_ptr<I>> const &imps)
      : m_array(new zel::Array<E>(imps.size())) {
    for (boost::shared_ptr<I> const &imp : imps)
      m_array->append(E(imp));
  }
  /// A new array holding copies of the given element handles.
  explicit HandleList(zel::Array<E> const &elements) : m_array(new zel::Array<E>(elements)) {}
  HandleList(HandleList const &) = default;
  HandleList &operator=(HandleList const &) = default;
  ~HandleList() = default;

  /// The element at `index`; an index at or past size() is the assertion
  /// "index < size()".
  E const &operator[](unsigned int index) const {
    ZEL_ASSERT(index < size());
    return (*m_array)[index];
  }
  E const &get(unsigned int index) const { return (*this)[index]; }

  unsigned int size() const noexcept { return static_cast<unsigned int>(m_array->size()); }

  /// Removes the element from the shared array, for every copy of the list;
  /// later elements move down by one and keep their order. index == size()
  /// does nothing; past that it is the assertion "index <= sz".
  void remove(unsigned int index) {
    unsigned int sz = size();
    ZEL_ASSERT(index <= sz);
    m_array->remove(index);
  }

  /// True when both lists share one array.
  bool sharesArrayWith(HandleList const &other) const noexcept {
    return m_array.get() == other.m_array.get();
  }

protected:
  Holder m_array;
};

/// Base of a handle whose implementation object is shared through
/// boost::shared_ptr (Device, Module, Test, ...; Base = NoApiWrapper for the
/// handles without base, such as Alert). It holds the one field `m_imp`; the
/// default constructor gives the empty handle, and constructing from a
/// pointer is the only way to bind one. Copies share the object (atomic
/// count); the handle has no state of its own.
struct NoApiWrapper {};

template <class I, class Base = SharedAll::ApiWrapper> class SharedHandle : public Base {
public:
  typedef I implementation_type;

  /// True when the handle is bound to an implementation object.
  bool isValid() const noexcept { return m_imp.get() != nullptr; }

protected:
  SharedHandle() noexcept = default;
  explicit SharedHandle(boost::shared_ptr<I> imp) noexcept : m_imp(std::move(imp)) {}

  boost::shared_ptr<I> m_imp;
};

} // namespace ostrel5
