#pragma once
// zel::TipImp: advice attached to a module, a test, an alert or a test-run
// event ("check the cable", a link, a program to launch). zel::TipArray:
// the tips one owner holds.
//
// Texts are zel::LocalizedString: the engine resolves them in the client's
// language, so a tip carries the display text and the resource key it came
// from; readers take text().
//
// Text form, toString(indent, verbose): groups of three lines, so that a
// reader can take the label after the first "-" of the first line and the
// value after the second ":" of the third line:
//     Tip - <title>
//     Key: <key>
//     Content: <TYPE>: <content>
// verbose adds a second group for the extended content:
//     Tip (extended) - <title>
//     Key: <key>
//     Extended: <TYPE>: <extended content>
// Every line ends with "\n" and starts with two blanks per indent step.
//
// Ownership: a TipArray holds shared pointers; the owner keeps its tips alive
// as long as it lives, so the raw pointers handed out by tip(i) stay valid
// that long. Copying a TipArray shares the tips; deepCopy() does not.
// Thread-compatible.

#include <boost/shared_ptr.hpp>

#include "zel/Array.h"
#include "zel/String.h"
#include "zel/TipTypeImp.h"
#include "zel/ValueImp.h"

namespace zel {

class TipImp {
public:
  TipImp() = default;
  TipImp(String const &key, TipTypeImp type, LocalizedString const &title,
         LocalizedString const &content, LocalizedString const &contentEx = LocalizedString())
      : m_key(key), m_type(type), m_title(title), m_content(content), m_contentEx(contentEx) {}
  TipImp(TipImp const &) = default;
  TipImp(TipImp &&) = default;
  TipImp &operator=(TipImp const &) = default;
  TipImp &operator=(TipImp &&) = default;
  virtual ~TipImp() = default;

  String const &key() const noexcept { return m_key; }
  TipTypeImp type() const noexcept { return m_type; }
  LocalizedString const &title() const noexcept { return m_title; }
  LocalizedString const &content() const noexcept { return m_content; }
  LocalizedString const &contentEx() const noexcept { return m_contentEx; }

  TipImp &setKey(String const &v) {
    m_key = v;
    return *this;
  }
  TipImp &setType(TipTypeImp v) {
    m_type = v;
    return *this;
  }
  TipImp &setTitle(LocalizedString const &v) {
    m_title = v;
    return *this;
  }
  TipImp &setContent(LocalizedString const &v) {
    m_content = v;
    return *this;
  }
  TipImp &setContentEx(LocalizedString const &v) {
    m_contentEx = v;
    return *this;
  }

  /// See the header for the form.
  String toString(unsigned int indent = 0, bool verbose = false) const;

  friend bool operator==(TipImp const &a, TipImp const &b) noexcept {
    return a.m_key == b.m_key && a.m_type == b.m_type && a.m_title == b.m_title &&
           a.m_content == b.m_content && a.m_contentEx == b.m_contentEx;
  }
  friend bool operator!=(TipImp const &a, TipImp const &b) noexcept { return !(a == b); }

private:
  String m_key;
  TipTypeImp m_type = TipTypeImp::UNINITIALIZED;
  LocalizedString m_title;
  LocalizedString m_content;
  LocalizedString m_contentEx;
};

/// The tips of one owner, in the order they were added. Indexing gives the
/// shared pointer (`tips[i]->toString(0, false)`).
class TipArray : public Array<boost::shared_ptr<TipImp>> {
public:
  TipArray() = default;

  /// Appends a copy of `tip`.
  void addTip(TipImp const &tip) { append(boost::shared_ptr<TipImp>(new TipImp(tip))); }
  /// Takes `tip` (which must not be null).
  void addTip(TipImp *tip) { append(boost::shared_ptr<TipImp>(tip)); }
  /// The tip at `index` as a plain pointer, or null past the end.
  TipImp *at(std::size_t index) const { return index < size() ? (*this)[index].get() : nullptr; }
  /// A copy whose tips are copies too.
  TipArray deepCopy() const;
  /// Equal when both hold equal tips in the same order.
  bool sameContent(TipArray const &other) const;
};

} // namespace zel
