#pragma once
// ostrel5::Tip: a piece of advice attached to a module, a test, an alert or a
// test event ("check the cable", a link, a program to launch).
//
// A Tip holds a plain pointer to a zel::TipImp that its owner (the module,
// test, alert or event) keeps alive: copying a Tip copies the pointer, and a
// Tip must not outlive the object it came from.
//
// Empty handle: Tip() holds no pointer; every accessor but the constructors,
// the copy and isValid asserts "m_pImp" on it.
//
// Threads: a plain value; the tip object is never changed once made.

#include "ostrel/ApiWrapper.h"
#include "ostrel/TipType.h"
#include "zel/String.h"

namespace zel {
class TipImp;
}

namespace ostrel5 {

class Tip : public SharedAll::ApiWrapper {
public:
  Tip() noexcept = default;
  explicit Tip(zel::TipImp const *imp) noexcept : m_pImp(imp) {}
  Tip(Tip const &) noexcept = default;
  Tip &operator=(Tip const &) noexcept = default;
  ~Tip() override;

  bool isValid() const noexcept { return m_pImp != nullptr; }

  zel::String const &key() const;
  TipType type() const;
  /// The localized texts, in the language the engine enumerated in.
  zel::String title() const;
  zel::String text() const;
  zel::String extended_text() const;
  zel::String toString(unsigned int indent, bool verbose) const;
  zel::TipImp const *getImp() const;

private:
  zel::TipImp const *m_pImp = nullptr;
};

} // namespace ostrel5
