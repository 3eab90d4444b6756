#pragma once

#include "tools/ExitCode.h"
#include "tools/ExportOptions.h"

namespace vidloom {

/// Carries an export out, on the main thread. Says what went wrong on standard error. Ends within a second of Ctrl-C, leaving no
/// file; a second Ctrl-C does not wait for anything.
ExitCode runExport(const ExportOptions& options);

}  // namespace vidloom
