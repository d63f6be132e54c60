// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "view/foxglove_client.h"
#include "view/guard.h"
#include "view/page_frame.h"

namespace orva::view {
namespace {

/// What the page makes of a frame, after the table in page_frame.h.
struct PageReader {
  explicit PageReader(const Bytes& from) : bytes(from) {}

  template <typename T>
  T At(std::size_t offset) const {
    T value;
    EXPECT_LE(offset + sizeof value, bytes.size());
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }
  std::size_t count() const { return At<std::uint32_t>(12); }
  float step(std::size_t axis) const { return At<float>(40 + 4 * axis); }
  std::uint32_t Code(std::size_t axis, std::size_t i) const {
    const std::uint32_t low = At<std::uint16_t>(kPageHeaderSize + (axis * count() + i) * 2);
    const std::uint32_t upper = At<std::uint8_t>(bytes.size() - count() + i);
    return axis == 2 ? low : low | (axis == 0 ? upper & 15U : upper >> 4) << 16;
  }
  double Coordinate(std::size_t axis, std::size_t i) const {
    return At<float>(28 + 4 * axis) + double{step(axis)} * Code(axis, i);
  }
  std::vector<unsigned> Lines() const {
    const std::size_t at = kPageHeaderSize + 8 * count();
    std::vector<unsigned> lines;
    if ((At<std::uint16_t>(6) & 1) == 0) {
      lines.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                   bytes.begin() + static_cast<std::ptrdiff_t>(at + count()));
    }
    for (std::size_t run = 0; run < At<std::uint32_t>(52); ++run) {
      lines.insert(lines.end(), At<std::uint16_t>(at + 4 * run + 2), At<std::uint16_t>(at + 4 * run));
    }
    return lines;
  }

  const Bytes& bytes;
};

/// 192 lines of 128 points that fill a box of `span` metres, `height` metres high; every 50th has no return.
Cloud Box(float span, float height, bool mixed_lines) {
  Cloud cloud;
  for (int i = 0; i < 192 * 128; ++i) {
    const auto part = [i](int step) { return static_cast<float>((i * step) % 1009) / 1008.0F; };
    PointTime point;
    if (i % 50 != 0) {
      point.x = span * (part(1) - 0.3F);
      point.y = span * (part(37) - 0.5F);
      point.z = height * (part(101) - 0.5F);
    }
    point.intensity = static_cast<std::uint16_t>(i);
    point.label = static_cast<std::uint16_t>(mixed_lines ? i % 192 : i / 128);
    cloud.points.push_back(point);
  }
  return cloud;
}

TEST(PageFrameTest, KeepsEveryPointWithinHalfAStepInTenBytes) {
  const struct {
    float span, height;
    bool mixed_lines;
    float step, height_step, most_bytes;
  } cases[] = {{65.0F, 30.0F, false, 0.001F, 0.001F, 9.1F},
               {1000.0F, 65.0F, false, 0.001F, 0.001F, 9.1F},
               {1000.0F, 65.0F, true, 0.001F, 0.001F, 10.01F},
               {4000.0F, 650.0F, false, 0.004F, 0.01F, 9.1F}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.span);
    const Cloud cloud = Box(c.span, c.height, c.mixed_lines);
    const Bytes bytes = EncodePageFrame(cloud, 7, 12.5);
    const PageReader page(bytes);
    ASSERT_EQ(page.count(), cloud.points.size());
    EXPECT_LE(static_cast<float>(bytes.size()) / static_cast<float>(page.count()), c.most_bytes);
    EXPECT_LE(page.step(0), c.step * 1.01F);
    EXPECT_LE(page.step(2), c.height_step * 1.01F);
    const auto lines = page.Lines();
    ASSERT_EQ(lines.size(), cloud.points.size());
    for (std::size_t i = 0; i < cloud.points.size(); ++i) {
      const PointTime& point = cloud.points[i];
      ASSERT_EQ(page.Code(0, i) == 0xFFFFF, i % 50 == 0) << i;
      ASSERT_EQ(page.At<std::uint16_t>(kPageHeaderSize + (3 * page.count() + i) * 2), point.intensity);
      ASSERT_EQ(lines[i], point.label);
      const float coordinates[] = {point.x, point.y, point.z};
      for (std::size_t axis = 0; axis < 3 && i % 50 != 0; ++axis) {
        ASSERT_NEAR(page.Coordinate(axis, i), coordinates[axis], page.step(axis) * 0.501) << i;
      }
    }
  }
}

TEST(PageFrameTest, TakesWhatNoSensorSends) {
  const float huge = std::numeric_limits<float>::max();
  Cloud cloud;
  cloud.points.resize(4);
  cloud.points[0].x = std::numeric_limits<float>::quiet_NaN();
  cloud.points[1].y = std::numeric_limits<float>::infinity();
  cloud.points[2].z = huge;
  cloud.points[3].z = -huge;
  cloud.points[3].label = 40000;
  const Bytes bytes = EncodePageFrame(cloud, 0, 0.0);
  const PageReader page(bytes);
  EXPECT_EQ(page.Code(0, 0), 0xFFFFFU);
  EXPECT_EQ(page.Code(0, 1), 0xFFFFFU);
  EXPECT_EQ(page.Code(2, 2), 0xFFFFU);
  EXPECT_EQ(page.Code(2, 3), 0U);
  EXPECT_EQ(page.Lines(), (std::vector<unsigned>{0, 0, 0, 40000}));
  EXPECT_EQ(EncodePageFrame(Cloud(), 0, 0.0).size(), kPageHeaderSize);
}

TEST(GuardTest, LetsInItsOwnPageAndNoOther) {
  Guard guard;
  guard.origins = {"https://viewer.example"};
  const struct {
    const char* host;
    const char* origin;
    bool admitted;
  } cases[] = {{"127.0.0.1:6780", "", true},
               {"127.0.0.1:6780", "http://127.0.0.1:6780", true},
               {"localhost:6780", "http://localhost:6780", true},
               {"127.0.0.1:6780", "https://viewer.example", true},
               {"127.0.0.1:6780", "http://127.0.0.1:8080", false},
               {"127.0.0.1:6780", "http://evil.example", false},
               {"127.0.0.1:6780", "null", false},
               {"evil.example:6780", "http://evil.example:6780", false},
               {"127.0.0.1.evil.example", "http://127.0.0.1.evil.example", false},
               {"localhost.evil.example:6780", "", false},
               {"", "", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(guard.AdmitsHost(c.host) && guard.AdmitsOrigin(c.origin, c.host), c.admitted)
        << c.host << " " << c.origin;
  }
}

TEST(GuardTest, AsksForTheWholeToken) {
  Guard guard;
  EXPECT_TRUE(guard.AdmitsToken(""));
  guard.token = MakeToken();
  EXPECT_EQ(guard.token.size(), 32U);
  EXPECT_NE(guard.token, MakeToken());
  EXPECT_TRUE(guard.AdmitsToken(guard.token));
  for (const std::string& wrong :
       {std::string(), guard.token.substr(1), guard.token + "0", std::string(32, '0')}) {
    EXPECT_FALSE(guard.AdmitsToken(wrong)) << wrong;
  }
}

/// A live sensor that has 56 IMU samples for whoever asks.
class ImuFeed : public Feed {
 public:
  ImuFeed() {
    subject_.live = true;
    subject_.has_imu = true;
  }
  const Subject& subject() const override { return subject_; }
  Status status() override { return {}; }
  FramePtr Newest() override { return nullptr; }
  std::vector<ImuMsg> ImuSince(std::uint64_t&) override { return std::vector<ImuMsg>(56); }
  void Want(std::uint64_t, std::uint32_t, Clock::time_point) override {}
  FramePtr TakeWanted(std::uint64_t) override { return nullptr; }
  std::uint64_t Enter() override { return 1; }
  void Leave(std::uint64_t) override {}
  void Close() override {}

 private:
  Subject subject_;
};

TEST(FoxgloveTest, EndsForUnreadComplaintsAndNotForWaitingSamples) {
  ImuFeed feed;
  FoxgloveClient client(feed);
  EXPECT_TRUE(client.Receive(R"({"op":"subscribe","subscriptions":[{"id":1,"channelId":2}]})"));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(client.Next()) << "two greetings, the first sample";
  EXPECT_TRUE(client.Receive(R"({"op":"unsubscribe","subscriptionIds":[1]})"));
  const std::string odd = R"({"op":"subscribe","subscriptions":[{"id":1,"channelId":9}]})";
  for (int i = 0; i < 31; ++i) EXPECT_TRUE(client.Receive(odd)) << i;
  EXPECT_FALSE(client.Receive(odd));
}

}  // namespace
}  // namespace orva::view
