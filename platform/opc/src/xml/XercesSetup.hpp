#pragma once

namespace opc::xml {

// Initialises Xerces at the first call; it stays initialised until the process ends. Safe to call
// from any thread. Throws std::bad_alloc if there is too little memory; nothing has happened then,
// and a later call may succeed. If a library below Xerces fails for lack of memory, this and every
// later call throw opc::Exception: XML cannot be used in this process any more.
void setUpXerces();

}  // namespace opc::xml
