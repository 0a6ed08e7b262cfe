#include "platform/device_env.h"

#include <unistd.h>

#include "platform/like_match.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace qr {

namespace {

struct Variable {
  const char* pattern;
  std::string DeviceEnvironment::*field;
};

// In the order in which an entry is tried against them.
const Variable kVariables[] = {
    {"U3_DEVICE_SERIAL=*", &DeviceEnvironment::U3_DEVICE_SERIAL},
    {"U3_DEVICE_PATH=*", &DeviceEnvironment::U3_DEVICE_PATH},
    {"U3_DEVICE_DOCUMENT_PATH=*", &DeviceEnvironment::U3_DEVICE_DOCUMENT_PATH},
    {"U3_DEVICE_VENDOR=*", &DeviceEnvironment::U3_DEVICE_VENDOR},
    {"U3_DEVICE_PRODUCT=*", &DeviceEnvironment::U3_DEVICE_PRODUCT},
    {"U3_DEVICE_VENDOR_ID=*", &DeviceEnvironment::U3_DEVICE_VENDOR_ID},
    {"U3_APP_DATA_PATH=*", &DeviceEnvironment::U3_APP_DATA_PATH},
    {"U3_HOST_EXEC_PATH=*", &DeviceEnvironment::U3_HOST_EXEC_PATH},
    {"U3_DEVICE_EXEC_PATH=*", &DeviceEnvironment::U3_DEVICE_EXEC_PATH},
    {"U3_ENV_VERSION=*", &DeviceEnvironment::U3_ENV_VERSION},
    {"U3_ENV_LANGUAGE=*", &DeviceEnvironment::U3_ENV_LANGUAGE},
    {"U3_IS_UPGRADE=*", &DeviceEnvironment::U3_IS_UPGRADE},
    {"U3_IS_DEVICE_AVAILABLE=*", &DeviceEnvironment::U3_IS_DEVICE_AVAILABLE},
    {"U3_IS_AUTORUN=*", &DeviceEnvironment::U3_IS_AUTORUN},
    {"U3_DAPI_CONNECT_STRING=*", &DeviceEnvironment::U3_DAPI_CONNECT_STRING},
    {"U3_ENV_SUB_VERSION=*", &DeviceEnvironment::U3_ENV_SUB_VERSION},
};

}  // namespace

DeviceEnvironment ReadDeviceEnvironment(const std::vector<std::string>& environment,
                                        const DeviceDefaults& defaults) {
  DeviceEnvironment env;
  for (const std::string& entry : environment) {
    if (entry.empty()) break;
    for (const Variable& v : kVariables) {
      if (LikeMatch(entry, v.pattern)) {
        env.*v.field = entry.substr(entry.find('=') + 1);
        break;
      }
    }
  }
  env.onDevice = !Trim(env.U3_DEVICE_SERIAL).empty();
  if (env.onDevice) return env;

  // Not on a device: every value takes its default, whatever the scan found, so that no mix of
  // device and local values can arise.
  const std::string folder = WithoutTrailingSep(defaults.programFolder);
  env.U3_DEVICE_SERIAL = defaults.machineId;
  env.U3_DEVICE_PATH = defaults.programDrive;
  env.U3_DEVICE_DOCUMENT_PATH = folder;
  env.U3_DEVICE_VENDOR = "Generic";
  env.U3_DEVICE_PRODUCT = "PC";
  env.U3_DEVICE_VENDOR_ID = "PC";
  env.U3_APP_DATA_PATH = folder;
  env.U3_HOST_EXEC_PATH = folder;
  env.U3_DEVICE_EXEC_PATH = folder;
  env.U3_ENV_VERSION = "1.0";
  env.U3_ENV_LANGUAGE = "English";
  env.U3_IS_UPGRADE = "1";
  env.U3_IS_DEVICE_AVAILABLE = "No";
  env.U3_IS_AUTORUN = "False";
  env.U3_DAPI_CONNECT_STRING = "";
  env.U3_ENV_SUB_VERSION = "";
  env.defaultSerialCopy = defaults.machineId;
  return env;
}

std::vector<std::string> ProcessEnvironment() {
  std::vector<std::string> out;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) out.emplace_back(*e);
  return out;
}

}  // namespace qr
