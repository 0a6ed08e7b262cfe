#pragma once
// The settings files under AppPath that start-up reads and the normal close writes.
namespace qr {

class RunContext;

// robocopy_settings.ini
void GetINIVals(RunContext& ctx);
void SetINIVals(RunContext& ctx);
// log_processes.ini: read if present, else created with every key "1".
void LoadLogProcesses(RunContext& ctx);
// defaults.ini: its values overwrite the options.
void GetDefaults(RunContext& ctx);
// local.ini and ravelin.ini, written at close.
void WriteLocalSettings(RunContext& ctx);

}  // namespace qr
