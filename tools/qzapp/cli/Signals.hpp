#pragma once

namespace qzapp {

// Makes SIGINT, SIGTERM and SIGHUP remove all private folders, and a bar that is drawn, before they end
// the process, and lets writes fail with an error where SIGPIPE and SIGXFSZ would end it.
void installSignalHandlers();

}  // namespace qzapp
