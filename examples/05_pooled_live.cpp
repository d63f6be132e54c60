// SPDX-License-Identifier: Apache-2.0
// A live application as it should be built: clouds come from a pool, so that nothing is allocated once the
// stream has settled, and the work on them is done on a thread of the application, so that the driver's
// decoding thread never waits for it. Ends with Ctrl-C, or after SECONDS.
//   05_pooled_live MODEL DATA_PORT CALIBRATION_FOLDER [SECONDS]    (MODEL: number of a LidarType, TS4B is 33)
#include <orva_driver.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

using Cloud = PointCloud<PointTime>;
using Clock = std::chrono::steady_clock;

namespace {

volatile std::sig_atomic_t interrupted = 0;

/// Clouds for reuse. A cloud comes back by itself when its last owner lets go.
class CloudPool {
 public:
  CloudPool() : shelf_(std::make_shared<Shelf>()) {}

  std::shared_ptr<Cloud> Get() {
    std::unique_ptr<Cloud> cloud;
    {
      const std::lock_guard<std::mutex> lock(shelf_->mutex);
      if (!shelf_->clouds.empty()) {
        cloud = std::move(shelf_->clouds.back());
        shelf_->clouds.pop_back();
      }
    }
    if (!cloud) cloud = std::make_unique<Cloud>();
    cloud->points.clear();  // keeps its capacity; the driver only appends
    // The deleter shares the shelf, so clouds may outlive the pool.
    return {cloud.release(), [shelf = shelf_](Cloud* used) {
              std::unique_ptr<Cloud> returned(used);
              const std::lock_guard<std::mutex> lock(shelf->mutex);
              shelf->clouds.push_back(std::move(returned));
            }};
  }

 private:
  struct Shelf {
    std::mutex mutex;
    std::vector<std::unique_ptr<Cloud>> clouds;
  };
  std::shared_ptr<Shelf> shelf_;
};

/// Frames on their way to the worker. A worker that falls behind loses the oldest frame, not the driver time.
class FrameQueue {
 public:
  void Push(std::shared_ptr<Cloud> cloud) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (frames_.size() == kMostWaiting) {
        frames_.pop_front();
        ++skipped_;
      }
      frames_.push_back(std::move(cloud));
    }
    changed_.notify_one();
  }

  /// Null once closed and empty.
  std::shared_ptr<Cloud> Pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return closed_ || !frames_.empty(); });
    if (frames_.empty()) return nullptr;
    std::shared_ptr<Cloud> cloud = std::move(frames_.front());
    frames_.pop_front();
    return cloud;
  }

  void Close() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
    }
    changed_.notify_all();
  }

  unsigned Skipped() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return skipped_;
  }

 private:
  static constexpr std::size_t kMostWaiting = 4;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Cloud>> frames_;
  bool closed_ = false;
  unsigned skipped_ = 0;
};

/// The application's work: here, the nearest obstacle straight ahead, in a corridor of two metres.
void Work(FrameQueue& queue) {
  unsigned frame = 0;
  while (const std::shared_ptr<Cloud> cloud = queue.Pop()) {
    float nearest = 0.0F;
    for (const PointTime& point : cloud->points) {
      const bool ahead =
          point.x > 0.0F && point.y > -1.0F && point.y < 1.0F && point.z > -1.0F && point.z < 1.0F;
      if (ahead && (nearest == 0.0F || point.x < nearest)) nearest = point.x;
    }
    std::printf("frame %u: %zu points, nearest ahead %.2f m\n", frame++, cloud->points.size(),
                static_cast<double>(nearest));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4 || argc > 5) {
    std::fprintf(stderr, "usage: %s MODEL DATA_PORT CALIBRATION_FOLDER [SECONDS]\n", argv[0]);
    return 2;
  }
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::signal(SIGTERM, [](int) { interrupted = 1; });

  CloudPool pool;
  FrameQueue queue;
  std::thread worker(Work, std::ref(queue));
  bool started = false;
  {
    OrvaDriver<Cloud> driver;
    driver.RegisterPointCloudCallBack(
        [&queue](std::shared_ptr<Cloud> cloud) { queue.Push(std::move(cloud)); },
        [&pool] { return pool.Get(); });

    DriverParam param;
    param.lidar_type = static_cast<LidarType>(std::atoi(argv[1]));
    param.input_param.msop_port = static_cast<uint16_t>(std::atoi(argv[2]));
    param.calibration_param.calib_folder = argv[3];
    param.decoder_param = {0.5F, 200.0F, -180.0F, 180.0F, -90.0F, 90.0F};
    started = driver.InitDriver(param) && driver.Start();

    const auto end = Clock::now() + std::chrono::seconds(argc == 5 ? std::atoi(argv[4]) : 1'000'000'000);
    while (started && interrupted == 0 && Clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }  // the driver is gone before what its callbacks use
  queue.Close();
  worker.join();
  if (const unsigned skipped = queue.Skipped())
    std::printf("%u frames skipped: the work took too long\n", skipped);
  return started ? 0 : 1;
}
