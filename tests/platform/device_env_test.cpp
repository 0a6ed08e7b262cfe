#include "platform/device_env.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/child_process.h"

namespace qr {
namespace {

const DeviceDefaults kDefaults{"/opt/ravelin/", "/media/stick", "machine-42"};

TEST(DeviceEnvironmentTest, OnADeviceOnlyTheEnvironmentCountsByExactNameUpToAnEmptyEntry) {
  const auto env = ReadDeviceEnvironment(
      {"PATH=/usr/bin", "U3_DEVICE_SERIAL=0815", "U3_DEVICE_PATH=/media/u3",
       "U3_DAPI_CONNECT_STRING=a=b=c", "u3_device_product=lower", "U3_DEVICE_PRODUCTX=longer",
       "XU3_DEVICE_PRODUCT=prefixed", "U3_DEVICE_VENDOR_ID=id", "U3_ENV_VERSION", "",
       "U3_ENV_LANGUAGE=Late"},
      kDefaults);
  EXPECT_TRUE(env.onDevice);
  // The value is all after the first "="; names match exactly and whole; the scan stops at an
  // empty entry; a device gets no defaults for what it leaves out.
  EXPECT_EQ((std::vector<std::string>{env.U3_DEVICE_SERIAL, env.U3_DEVICE_PATH,
                                      env.U3_DAPI_CONNECT_STRING, env.U3_DEVICE_VENDOR_ID,
                                      env.U3_DEVICE_PRODUCT, env.U3_ENV_VERSION,
                                      env.U3_ENV_LANGUAGE, env.U3_DEVICE_EXEC_PATH,
                                      env.defaultSerialCopy}),
            (std::vector<std::string>{"0815", "/media/u3", "a=b=c", "id", "", "", "", "", ""}));
}

TEST(DeviceEnvironmentTest, BlankSerialGivesEveryDefaultOverWhatWasFound) {
  const auto env = ReadDeviceEnvironment(
      {"U3_DEVICE_SERIAL=   ", "U3_ENV_LANGUAGE=German", "U3_DAPI_CONNECT_STRING=x"}, kDefaults);
  EXPECT_FALSE(env.onDevice);
  // The program folder without its separator, for every folder a device would name.
  EXPECT_EQ((std::vector<std::string>{env.U3_DEVICE_SERIAL, env.defaultSerialCopy,
                                      env.U3_DEVICE_PATH, env.U3_DEVICE_DOCUMENT_PATH,
                                      env.U3_APP_DATA_PATH, env.U3_HOST_EXEC_PATH,
                                      env.U3_DEVICE_EXEC_PATH, env.U3_ENV_LANGUAGE,
                                      env.U3_DAPI_CONNECT_STRING}),
            (std::vector<std::string>{"machine-42", "machine-42", "/media/stick", "/opt/ravelin",
                                      "/opt/ravelin", "/opt/ravelin", "/opt/ravelin", "English",
                                      ""}));
  EXPECT_EQ(ReadDeviceEnvironment({}, DeviceDefaults{"/", "", "id"}).U3_DEVICE_DOCUMENT_PATH, "");
}

TEST(DeviceEnvironmentTest, ProcessEnvironmentIsThisProcesssInOrder) {
  test::EnvVar first("RAVELIN_TEST_FIRST", "1");
  test::EnvVar serial("U3_DEVICE_SERIAL", "from-the-process");
  const auto entries = ProcessEnvironment();
  const auto a = std::find(entries.begin(), entries.end(), "RAVELIN_TEST_FIRST=1");
  EXPECT_LT(a, std::find(entries.begin(), entries.end(), "U3_DEVICE_SERIAL=from-the-process"));
  EXPECT_EQ(ReadDeviceEnvironment(entries, kDefaults).U3_DEVICE_SERIAL, "from-the-process");
}

}  // namespace
}  // namespace qr
