// SPDX-License-Identifier: Apache-2.0
#include "config/sensors.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_folder.h"

namespace {

using orva::config::ReadSensors;
using orva::config::Sensor;

TEST(Config, ReadsEachSensorWithItsOwnSettings) {
  const orva::test::TempFolder folder;
  folder.Write("car.toml", R"(
[sensor.front]
model = "ts4b"
port = 6699
host = "192.168.1.100"
calib = "calib/front"
mount = [1, 0.5, -2.0, 0, 0, 90]
distance = [0.5, 80]
elevation = [-10, 10.5]
out = "/data/front"
format = "pcd,ply"
[sensor.back]
model = "TS6"
port = 6699
host = "192.168.2.100"
sensor = "192.168.2.200"
command_port = 6690
command_local_port = 6699
command_host = "192.168.3.100"
imu = "back.csv"
frame_id = "lidar_back"
)");
  const std::vector<Sensor> sensors = ReadSensors(folder.Path() + "/car.toml");
  ASSERT_EQ(sensors.size(), 2U);
  const Sensor& back = sensors[0];
  EXPECT_EQ(back.name, "back");
  EXPECT_EQ(back.param.lidar_type, TS6);
  EXPECT_TRUE(back.param.calib_from_lidar);
  EXPECT_EQ(back.param.calibration_param.lidar_ip, "192.168.2.200");
  EXPECT_EQ(back.param.calibration_param.lidar_port, 6690);
  EXPECT_FALSE(back.param.decoder_param.use_transform);
  EXPECT_EQ(back.param.decoder_param.max_distance, 1000.0F);
  EXPECT_EQ(back.imu, folder.Path() + "/back.csv");
  EXPECT_EQ(back.frame_id, "lidar_back");
  const Sensor& front = sensors[1];
  EXPECT_EQ(front.param.lidar_type, TS4B);
  EXPECT_EQ(front.param.input_param.msop_port, 6699);
  EXPECT_EQ(front.param.input_param.host_ip, "192.168.1.100");
  EXPECT_EQ(front.param.calibration_param.calib_folder, folder.Path() + "/calib/front");
  EXPECT_TRUE(front.param.decoder_param.use_transform);
  EXPECT_EQ(front.param.decoder_param.z_offset, -2.0F);
  EXPECT_EQ(front.param.decoder_param.yaw, 90.0F);
  EXPECT_EQ(front.param.decoder_param.max_elevation, 10.5F);
  EXPECT_EQ(front.out, "/data/front");
  EXPECT_EQ(front.formats, "pcd,ply");
}

TEST(Config, RefusesWithLineAndReason) {
  const orva::test::TempFolder folder;
  const std::string good = "[sensor.a]\nmodel = 'NV2'\nport = 1\n";
  const std::string download =
      "model = 'TS6'\nsensor = '10.0.0.1'\ncommand_port = 8\ncommand_local_port = 9\n";
  const std::string command = "[sensor.a]\nport = 1\n" + download;
  const struct {
    std::string text;
    const char* reason;
  } cases[] = {
      {"", "holds no sensor"},
      {"[sensor.a]\nport = 1\n", ":1: sensor 'a' has no 'model'"},
      {"[sensor.a]\nmodel = 'NV2'\n", "has no 'port'"},
      {"[sensor.a]\nmodel = 'NV3'\nport = 1\n", ":2: 'model' must be one of"},
      {"[sensor.a]\nmodel = 'NV2'\nport = 65536\n", ":3: 'port' must be a port, 1 to 65535"},
      {"[sensor.a]\nmodel = 'NV2'\nport = '1'\n", "'port' must be"},
      {good + "hots = '127.0.0.1'\n", ":4: sensor 'a' has an unknown key 'hots'. Known are model, port,"},
      {good + "host = 'localhost'\n", "IPv4"},
      {good + "distance = [5, 1]\n", "lower one first"},
      {good + "distance = [0, nan]\n", "two numbers"},
      {good + "mount = [1, 2, 3]\n", "six numbers"},
      {good + "out = ''\n", "a path"},
      {good + "frame_id = \"a\\u0000b\"\n", "frame_id"},
      {good + "sensor = '10.0.0.1'\n", "together"},
      {good + "sensor = '10.0.0.1'\ncommand_port = 1\ncalib = 'x'\n", "not from both"},
      {good + "[sensor.b]\nmodel = 'NV2'\nport = 1\nhost = '10.0.0.1'\n", "listen on one port. Give"},
      {good + "host = '10.0.0.2'\n[sensor.b]\nmodel = 'NV2'\nport = 1\nhost = '0.0.0.0'\n", "one port. Give"},
      {command + "[sensor.b]\nmodel = 'NV2'\nport = 9\n", "one port, 'command_local_port' and 'port'."},
      {command + "[sensor.b]\nport = 2\n" + download, "one port, 'command_local_port'. Give"},
      {"[sensor.a]\nport = 9\n" + download, ":1: sensor 'a' needs a 'command_local_port' other than"},
      {good + "out = 'x'\n[sensor.b]\nmodel = 'NV2'\nport = 2\nout = 'x'\n", "write over each other"},
      {good + "[senser.b]\n", ":4: 'senser' is unknown"},
      {good + "port = 2\n", ":4: "},
      {"sensor = 1\n", "is unknown"},
      {"[sensor]\na = 1\n", "is no section"},
      {std::string(2'000'000, '#'), "too long"},
      {std::string(100'000, '['), ":1: "}};
  for (const auto& odd : cases) {
    folder.Write("odd.toml", odd.text);
    try {
      ReadSensors(folder.Path() + "/odd.toml");
      ADD_FAILURE() << odd.text;
    } catch (const orva::config::Error& error) {
      const std::string what = error.what();
      EXPECT_NE(what.find(odd.reason), std::string::npos) << what;
      EXPECT_NE(what.find("odd.toml"), std::string::npos) << what;
    }
  }
  for (const std::string& path : {folder.Path(), folder.Path() + "/none"}) {
    EXPECT_THROW(ReadSensors(path), orva::config::Error);
  }
}

}  // namespace
