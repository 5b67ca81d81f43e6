// In a build without node.
#include "apps/kavo/page_template.h"

namespace kavo::command {

const PageTemplate* FindPageTemplate() { return nullptr; }

}  // namespace kavo::command
