#pragma once
// The portable device's facts, handed to a launched program through its environment. Read once
// at start-up; when the device serial is missing, every value takes its default at once, so later
// code needn't care which case holds.
#include <string>
#include <vector>

namespace qr {

struct DeviceEnvironment {
  std::string U3_DEVICE_SERIAL;
  std::string U3_DEVICE_PATH;
  std::string U3_DEVICE_DOCUMENT_PATH;
  std::string U3_DEVICE_VENDOR;
  std::string U3_DEVICE_PRODUCT;
  std::string U3_DEVICE_VENDOR_ID;
  std::string U3_APP_DATA_PATH;
  std::string U3_HOST_EXEC_PATH;
  std::string U3_DEVICE_EXEC_PATH;
  std::string U3_ENV_VERSION;
  std::string U3_ENV_LANGUAGE;
  std::string U3_IS_UPGRADE;
  std::string U3_IS_DEVICE_AVAILABLE;
  std::string U3_IS_AUTORUN;
  std::string U3_DAPI_CONNECT_STRING;
  std::string U3_ENV_SUB_VERSION;
  // A second copy of the serial, set only when the defaults apply.
  std::string defaultSerialCopy;
  // True when the environment named a device (a non-blank serial).
  bool onDevice = false;
};

struct DeviceDefaults {
  std::string programFolder;  // a trailing separator is cut before use
  std::string programDrive;   // the mount point holding the program's folder, as ProgramDrive()
  std::string machineId;      // stands in for the missing serial
};

// `environment` holds "NAME=value" entries in process order; the scan stops at the first
// empty entry. Each entry matches at most one variable pattern ("U3_DEVICE_SERIAL=*", ...).
DeviceEnvironment ReadDeviceEnvironment(const std::vector<std::string>& environment,
                                        const DeviceDefaults& defaults);

// This process's environment, in order.
std::vector<std::string> ProcessEnvironment();

}  // namespace qr
