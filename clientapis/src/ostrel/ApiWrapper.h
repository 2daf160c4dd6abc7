#pragma once
// ostrel5::SharedAll::ApiWrapper: the empty base of the value-style public
// classes (wrapped constants and the shared-pointer handles). It declares
// nothing but a virtual destructor, so that such objects can be deleted
// through it and carry a vtable; it holds no data.

namespace ostrel5 {
namespace SharedAll {

class ApiWrapper {
public:
  ApiWrapper() noexcept = default;
  ApiWrapper(ApiWrapper const &) noexcept = default;
  ApiWrapper &operator=(ApiWrapper const &) noexcept = default;
  virtual ~ApiWrapper();
};

} // namespace SharedAll
} // namespace ostrel5
