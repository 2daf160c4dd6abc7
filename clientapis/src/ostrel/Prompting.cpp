#include "ostrel/Prompting.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(Prompting, zel::PromptingImp::table())

zel::String Prompting::attributeString() const { return imp().attributeString(); }

Prompting Prompting::fromAttributeString(zel::String const &text) {
  return zel::PromptingImp::fromAttributeString(text);
}

} // namespace ostrel5
