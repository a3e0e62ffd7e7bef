#pragma once

namespace qzapp {

// Makes SIGINT, SIGTERM, SIGHUP and SIGXCPU remove all private folders and the progress bar before
// they end the process, and ignores SIGPIPE and SIGXFSZ, so that the writes that cause them fail
// with an error instead. Call it once, before any file is made.
void installSignalHandlers();

// Ends the process as SIGPIPE does by default, after the same cleaning up. Returns if the parent
// process ignores that signal.
void endBecauseReaderLeft();

}  // namespace qzapp
