#pragma once

namespace opc::xml {

// Sets Xerces up for the process, on the first call; it stays until the process is gone. Safe from any
// thread. Throws std::bad_alloc when there is too little memory: then nothing has happened, and a
// later call may succeed. Only where a library below Xerces is what lacks memory, opc::Exception says,
// now and ever after, that XML cannot be used in this process.
void setUpXerces();

}  // namespace opc::xml
