#include "jobdef/settings_files.h"

namespace qr {

// The settings files are not read or written yet: every start begins from the start values.
void GetINIVals(RunContext&) {}
void SetINIVals(RunContext&) {}
void LoadLogProcesses(RunContext&) {}
void GetDefaults(RunContext&) {}
void WriteLocalSettings(RunContext&) {}

}  // namespace qr
