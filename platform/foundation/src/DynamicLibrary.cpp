#include "zel/DynamicLibrary.h"

#include <dlfcn.h>

#include <utility>

namespace zel {

namespace {

String loaderError(char const *fallback) {
  char const *text = dlerror();
  return String(text ? text : fallback);
}

} // namespace

DynamicLibrary::DynamicLibrary(String const &path) : m_path(path) {}

DynamicLibrary::~DynamicLibrary() { unload(); }

DynamicLibrary::DynamicLibrary(DynamicLibrary &&other) noexcept
    : m_path(std::move(other.m_path)), m_handle(other.m_handle), m_error(std::move(other.m_error)) {
  other.m_handle = nullptr;
}

DynamicLibrary &DynamicLibrary::operator=(DynamicLibrary &&other) noexcept {
  if (this != &other) {
    unload();
    m_path = std::move(other.m_path);
    m_handle = other.m_handle;
    m_error = std::move(other.m_error);
    other.m_handle = nullptr;
  }
  return *this;
}

bool DynamicLibrary::load() {
  if (m_handle)
    return true;
  if (m_path.isEmpty()) {
    // dlopen(NULL) would hand back the main program, which is not a library.
    m_error = "empty library path";
    return false;
  }
  dlerror(); // drop a stale message of this thread
  m_handle = dlopen(m_path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!m_handle) {
    m_error = loaderError("dlopen failed");
    return false;
  }
  m_error = String();
  return true;
}

void DynamicLibrary::unload() {
  if (!m_handle)
    return;
  dlclose(m_handle);
  m_handle = nullptr;
}

void *DynamicLibrary::getSymbol(char const *name) {
  if (!m_handle) {
    m_error = "library not loaded";
    return nullptr;
  }
  if (!name || !*name) {
    m_error = "empty symbol name";
    return nullptr;
  }
  dlerror();
  void *address = dlsym(m_handle, name);
  if (!address) {
    m_error = loaderError("symbol not found");
    return nullptr;
  }
  m_error = String();
  return address;
}

} // namespace zel
