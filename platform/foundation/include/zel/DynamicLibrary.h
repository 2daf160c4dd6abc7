#pragma once
// zel::DynamicLibrary: one shared library loaded into the process.
//
// load() maps the library with every symbol resolved at once (a library with
// a missing dependency fails here rather than at a later call) and with its
// symbols kept local, so two plug-ins may export the same names. The object
// owns the mapping: unload() and the destructor release it, after which every
// address obtained through getSymbol() is invalid; the caller must drop
// objects whose code lives in the library first.
//
// Thread-compatible: one object is used by one thread at a time. Loading
// different libraries from different threads is safe.

#include "zel/String.h"

namespace zel {

class DynamicLibrary {
public:
  explicit DynamicLibrary(String const &path);
  ~DynamicLibrary();
  DynamicLibrary(DynamicLibrary const &) = delete;
  DynamicLibrary &operator=(DynamicLibrary const &) = delete;
  DynamicLibrary(DynamicLibrary &&other) noexcept;
  DynamicLibrary &operator=(DynamicLibrary &&other) noexcept;

  /// True when the library is loaded (also when it was loaded before). On
  /// failure errorText() says why.
  bool load();
  /// Releases the library; harmless when it is not loaded.
  void unload();
  bool isLoaded() const noexcept { return m_handle != nullptr; }

  /// Address of an exported symbol (function or data); null when the library
  /// is not loaded or has no such symbol (errorText() then says which).
  void *getSymbol(char const *name);

  String const &path() const noexcept { return m_path; }
  /// The loader's text for the last failure of load() or getSymbol(); "" after
  /// a success.
  String const &errorText() const noexcept { return m_error; }

private:
  String m_path;
  void *m_handle = nullptr;
  String m_error;
};

} // namespace zel
