#include "platform/background_worker.h"

#include <system_error>
#include <utility>

namespace qr {

bool BackgroundWorker::Post(std::function<void()> task) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (busy_) return false;
  if (!thread_.joinable()) {
    stopping_ = false;
    try {
      thread_ = std::thread([this] { Loop(); });
    } catch (const std::system_error&) {
      return false;
    }
  }
  task_ = std::move(task);
  busy_ = true;
  lock.unlock();
  posted_.notify_one();
  return true;
}

bool BackgroundWorker::WaitFor(std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  return finished_.wait_for(lock, limit, [this] { return !busy_; });
}

void BackgroundWorker::Stop() {
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!thread_.joinable()) return;
    finished_.wait(lock, [this] { return !busy_; });
    stopping_ = true;
  }
  posted_.notify_one();
  thread_.join();
}

void BackgroundWorker::Loop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    posted_.wait(lock, [this] { return busy_ || stopping_; });
    if (!busy_) return;
    std::function<void()> task = std::move(task_);
    lock.unlock();
    task();
    task = nullptr;
    lock.lock();
    busy_ = false;
    finished_.notify_all();
  }
}

}  // namespace qr
