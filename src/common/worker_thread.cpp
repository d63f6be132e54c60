// SPDX-License-Identifier: Apache-2.0
#include "common/worker_thread.h"

#include <pthread.h>

#include <new>
#include <system_error>

namespace tevoro::lidar {

bool WorkerThread::Start(std::function<void()> body) {
  if (running_) return true;
  if (IsCurrent()) return false;
  Join();
  running_ = true;
  try {
    thread_ = std::thread([this, body = std::move(body)] {
      thread_id_ = std::this_thread::get_id();
      pthread_setname_np(pthread_self(), name_.c_str());
      body();
    });
  } catch (const std::system_error& error) {
    running_ = false;
    failures_.Failed(error.code().value());
    return false;
  } catch (const std::bad_alloc&) {
    running_ = false;
    return false;
  }
  failures_.Succeeded();
  return true;
}

void WorkerThread::Stop() {
  running_ = false;
  if (!IsCurrent()) Join();
}

void WorkerThread::Join() {
  if (!thread_.joinable()) return;
  thread_.join();
  // The system may give the id of an ended thread to a new one, even to the caller's.
  thread_id_ = std::thread::id();
}

}  // namespace tevoro::lidar
