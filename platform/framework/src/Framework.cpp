// Library anchor: keeps the framework a valid shared library while it grows.
namespace zel {
char const *frameworkLibraryName() { return "Trevane"; }
} // namespace zel
