#include <qel/interface.h>

namespace qel
{

// Out of line so that the vtable and type information live in the library.
Interface::~Interface() = default;

} // namespace qel
