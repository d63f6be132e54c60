// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <stdexcept>

#include "random.h"
#include "scene.h"

namespace orva::sim {
namespace {

constexpr double kSensorHeight = 1.9;  // metres, on the roof of a car

// The street's cross-section, metres from its middle.
constexpr double kLane = 1.6;
constexpr double kParking = 4.0;
constexpr double kKerb = 5.0;
constexpr double kFacade = 8.0;
constexpr double kStreetStart = -90.0;
constexpr double kStreetEnd = 180.0;

// Asphalt with white lines between the lanes and along the kerbs, and paler pavements.
double RoadMarkings(const Vec3& point) {
  const double side = std::abs(point.y);
  if (side > kKerb) return 2.0;
  if (side > kKerb - 0.15) return 4.0;
  const bool dash = std::fmod(point.x - kStreetStart, 9.0) < 4.0;
  return side < 0.08 && dash ? 5.0 : 1.0;
}

// Windows throw the light elsewhere: they are dark.
double Windows(const Vec3& point) {
  const double column = std::fmod(point.x - kStreetStart, 3.0);
  const double row = std::fmod(point.z, 3.0);
  return column > 0.9 && column < 2.1 && row > 0.9 && row < 2.4 ? 0.15 : 1.0;
}

constexpr Material kAsphalt{0.17, RoadMarkings};
constexpr Material kBark{0.25};
constexpr Material kLeaves{0.45};
constexpr Material kSteel{0.6};
constexpr Material kSign{3.0};
constexpr Material kTyre{0.06};
constexpr Material kClothes{0.55};
constexpr Material kSkin{0.4};

// A car whose length lies along x, its middle at `place` on the ground.
void AddCar(Group& group, const Vec3& place, double reflectivity) {
  const Material paint{reflectivity};
  const Material glass{0.08};
  group.Add<Box>(place + Vec3{-2.1, -0.9, 0.35}, place + Vec3{2.1, 0.9, 0.85}, paint);
  group.Add<Box>(place + Vec3{-1.5, -0.8, 0.85}, place + Vec3{0.8, 0.8, 1.45}, glass);
  group.Add<Box>(place + Vec3{-1.3, -0.75, 1.45}, place + Vec3{0.6, 0.75, 1.5}, paint);
  for (const double x : {-1.3, 1.3}) {
    group.Add<Box>(place + Vec3{x - 0.32, -0.88, 0.0}, place + Vec3{x + 0.32, 0.88, 0.35}, kTyre);
  }
  // Number plates and lamps shine back.
  group.Add<Box>(place + Vec3{-2.12, -0.3, 0.5}, place + Vec3{2.12, 0.3, 0.62}, kSign);
}

void AddTree(Group& group, const Vec3& foot, Random& random) {
  const double trunk = random.Uniform(2.2, 2.9);
  const double crown = random.Uniform(1.3, 1.9);
  group.Add<Cylinder>(foot, random.Uniform(0.12, 0.2), trunk + 0.5 * crown, kBark);
  group.Add<Ellipsoid>(foot + Vec3{0.0, 0.0, trunk + 0.8 * crown}, Vec3{crown, crown, 1.3 * crown}, kLeaves);
}

void AddLamp(Group& group, const Vec3& foot) {
  const double inwards = foot.y > 0.0 ? -1.5 : 1.5;
  const Vec3 head = foot + Vec3{0.0, inwards, 6.0};
  group.Add<Cylinder>(foot, 0.09, 6.0, kSteel);
  group.Add<Box>(Vec3{foot.x - 0.06, std::min(foot.y, head.y), 5.9},
                 Vec3{foot.x + 0.06, std::max(foot.y, head.y), 6.0}, kSteel);
}

void AddSign(Group& group, const Vec3& foot) {
  group.Add<Cylinder>(foot, 0.04, 2.3, kSteel);
  group.Add<Box>(foot + Vec3{-0.07, -0.35, 2.0}, foot + Vec3{-0.05, 0.35, 2.7}, kSign);
}

// Walks along x at walking pace, legs swinging; starts anew at the beginning of its way.
std::unique_ptr<Primitive> MakePerson(double start_x, double y) {
  constexpr double kPace = 1.3;      // metres per second
  constexpr double kWay = 60.0;      // metres
  constexpr double kStrideHz = 0.9;  // full strides per second
  constexpr double kStride = 0.28;   // metres, swing of a foot to both sides
  const auto walk = [=](double time) { return Vec3{start_x + std::fmod(kPace * time, kWay), y, 0.0}; };
  auto person = std::make_unique<Group>(walk);
  person->Add<Ellipsoid>(Vec3{0.0, 0.0, 1.15}, Vec3{0.17, 0.25, 0.38}, kClothes);
  person->Add<Ellipsoid>(Vec3{0.0, 0.0, 1.63}, Vec3{0.11, 0.1, 0.14}, kSkin);
  for (const double side : {-1.0, 1.0}) {
    const auto swing = [=](double time) {
      return Vec3{side * kStride * std::sin(2.0 * std::numbers::pi * kStrideHz * time), 0.1 * side, 0.0};
    };
    auto leg = std::make_unique<Group>(swing, kStride + 0.1);
    leg->Add<Cylinder>(Vec3{0.0, 0.0, 0.0}, 0.08, 0.85, kClothes);
    person->Add(std::move(leg));
    const auto counter_swing = [=](double time) { return Vec3{-0.7 * swing(time).x, 0.0, 0.0}; };
    auto arm = std::make_unique<Group>(counter_swing, kStride);
    arm->Add<Cylinder>(Vec3{0.0, 0.3 * side, 0.75}, 0.05, 0.6, kClothes);
    person->Add(std::move(arm));
  }
  return person;
}

std::unique_ptr<Primitive> MakeOncomingCar() {
  constexpr double kSpeed = 8.0;  // metres per second
  constexpr double kFrom = 75.0;
  constexpr double kWay = 140.0;
  constexpr double kHeadStart = 42.0;  // metres, so that it is in sight from the first frame
  auto car = std::make_unique<Group>([](double time) {
    return Vec3{kFrom - std::fmod(kHeadStart + kSpeed * time, kWay), kLane, 0.0};
  });
  AddCar(*car, Vec3{}, 0.7);
  return car;
}

void AddHouses(Group& world, double side, Random& random) {
  double x = kStreetStart;
  while (x < kStreetEnd) {
    const double length = random.Uniform(9.0, 18.0);
    const double front = kFacade + random.Uniform(0.0, 1.5);
    const Material wall{random.Uniform(0.3, 0.7), Windows};
    const double near = side * front;
    const double far = side * (front + 10.0);
    world.Add<Box>(Vec3{x, std::min(near, far), 0.0},
                   Vec3{x + length, std::max(near, far), random.Uniform(7.0, 15.0)}, wall);
    x += length + (random.Uniform() < 0.3 ? random.Uniform(2.0, 5.0) : 0.0);
  }
}

void AddStreetFurniture(Group& world, double side, Random& random) {
  for (double x = -60.0 + random.Uniform(0.0, 4.0); x < 120.0; x += random.Uniform(5.6, 9.0)) {
    if (random.Uniform() < 0.7) AddCar(world, {x, side * kParking, 0.0}, random.Uniform(0.15, 0.8));
  }
  for (double x = -60.0 + random.Uniform(0.0, 8.0); x < 120.0; x += random.Uniform(10.0, 15.0)) {
    AddTree(world, {x, side * 5.9, 0.0}, random);
  }
  for (double x = -55.0 + 8.0 * side; x < 120.0; x += 26.0) {
    AddLamp(world, {x, side * 5.4, 0.0});
    AddSign(world, {x + 7.0, side * 5.3, 0.0});
  }
}

Scene MakeStreet(uint64_t seed) {
  Scene scene;
  scene.motion = {Vec3{0.0, -kLane, kSensorHeight}, 40.0, 6.0, 1.5};
  scene.world.Add<Ground>(kAsphalt);
  for (const double side : {-1.0, 1.0}) {
    Random random(seed, side > 0.0 ? 1 : 2);
    AddHouses(scene.world, side, random);
    AddStreetFurniture(scene.world, side, random);
  }
  // A house closes the street at either end.
  const Material brick{0.35, Windows};
  scene.world.Add<Box>(Vec3{kStreetEnd, -30.0, 0.0}, Vec3{kStreetEnd + 10.0, 30.0, 14.0}, brick);
  scene.world.Add<Box>(Vec3{kStreetStart - 10.0, -30.0, 0.0}, Vec3{kStreetStart, 30.0, 14.0}, brick);
  scene.world.Add(MakeOncomingCar());
  scene.world.Add(MakePerson(9.0, -6.9));
  scene.world.Add(MakePerson(14.0, 6.6));
  return scene;
}

Scene MakeRoom() {
  Scene scene;
  scene.motion.start = {0.0, 0.0, kSensorHeight};
  scene.world.Add<Box>(Vec3{-3.0, -4.5, 0.0}, Vec3{9.0, 4.5, 4.0}, Material{0.6});
  return scene;
}

Scene MakeWall() {
  Scene scene;
  scene.motion.start = {0.0, 0.0, kSensorHeight};
  scene.world.Add<Box>(Vec3{10.0, -1e4, -1e4}, Vec3{11.0, 1e4, 1e4}, Material{0.8});
  return scene;
}

}  // namespace

std::shared_ptr<const Scene> MakeScene(const std::string& name, uint64_t seed) {
  if (name == "street") return std::make_shared<const Scene>(MakeStreet(seed));
  if (name == "room") return std::make_shared<const Scene>(MakeRoom());
  if (name == "wall") return std::make_shared<const Scene>(MakeWall());
  throw std::invalid_argument("no scene is named '" + name + "'");
}

std::vector<std::string> SceneNames() {
  return {"street", "room", "wall"};
}

}  // namespace orva::sim
