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
       "U3_DEVICE_VENDOR=Acme", "U3_DAPI_CONNECT_STRING=a=b=c", "U3_ENV_SUB_VERSION=",
       "u3_device_product=lower", "U3_DEVICE_PRODUCTX=longer", "XU3_DEVICE_PRODUCT=prefixed",
       "U3_DEVICE_VENDOR_ID=id", "U3_ENV_VERSION", "", "U3_ENV_LANGUAGE=Late"},
      kDefaults);
  EXPECT_TRUE(env.onDevice);
  EXPECT_EQ(env.U3_DEVICE_SERIAL, "0815");
  EXPECT_EQ(env.U3_DEVICE_PATH, "/media/u3");
  EXPECT_EQ(env.U3_DEVICE_VENDOR, "Acme");
  EXPECT_EQ(env.U3_DAPI_CONNECT_STRING, "a=b=c") << "the value is all after the first =";
  EXPECT_EQ(env.U3_DEVICE_VENDOR_ID, "id");
  EXPECT_EQ(env.U3_DEVICE_PRODUCT, "") << "names match exactly and whole";
  EXPECT_EQ(env.U3_ENV_VERSION, "");
  EXPECT_EQ(env.U3_ENV_LANGUAGE, "") << "the scan stops at an empty entry";
  // All or nothing: a device gets no defaults for what it leaves out.
  EXPECT_EQ(env.U3_DEVICE_EXEC_PATH, "");
  EXPECT_EQ(env.defaultSerialCopy, "");
}

TEST(DeviceEnvironmentTest, BlankSerialGivesEveryDefaultOverWhatWasFound) {
  const auto env = ReadDeviceEnvironment(
      {"U3_DEVICE_SERIAL=   ", "U3_ENV_LANGUAGE=German", "U3_DAPI_CONNECT_STRING=x"}, kDefaults);
  EXPECT_FALSE(env.onDevice);
  EXPECT_EQ(env.U3_DEVICE_SERIAL, "machine-42");
  EXPECT_EQ(env.defaultSerialCopy, "machine-42");
  EXPECT_EQ(env.U3_DEVICE_PATH, "/media/stick");
  // The program folder without its separator, for every folder a device would name.
  for (const std::string& folder : {env.U3_DEVICE_DOCUMENT_PATH, env.U3_APP_DATA_PATH,
                                    env.U3_HOST_EXEC_PATH, env.U3_DEVICE_EXEC_PATH}) {
    EXPECT_EQ(folder, "/opt/ravelin");
  }
  EXPECT_EQ(env.U3_ENV_LANGUAGE, "English");
  EXPECT_EQ(env.U3_DAPI_CONNECT_STRING, "");
  const auto root = ReadDeviceEnvironment({}, DeviceDefaults{"/", "", "id"});
  EXPECT_EQ(root.U3_DEVICE_DOCUMENT_PATH, "");
}

TEST(DeviceEnvironmentTest, ProcessEnvironmentIsThisProcesssInOrder) {
  test::EnvVar first("RAVELIN_TEST_FIRST", "1");
  test::EnvVar second("RAVELIN_TEST_SECOND", "2");
  test::EnvVar serial("U3_DEVICE_SERIAL", "from-the-process");
  const auto entries = ProcessEnvironment();
  const auto a = std::find(entries.begin(), entries.end(), "RAVELIN_TEST_FIRST=1");
  const auto b = std::find(entries.begin(), entries.end(), "RAVELIN_TEST_SECOND=2");
  ASSERT_NE(a, entries.end());
  ASSERT_NE(b, entries.end());
  EXPECT_LT(a, b);
  EXPECT_EQ(ReadDeviceEnvironment(entries, kDefaults).U3_DEVICE_SERIAL, "from-the-process");
}

}  // namespace
}  // namespace qr
