#pragma once
// One long-lived second thread for a run: it takes one task at a time from the caller's thread,
// so that work that only reads a descriptor and computes can overlap with the caller's own.
// Everything else (the interface, the job database, the logs) stays on the caller's thread.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace qr {

class BackgroundWorker {
 public:
  BackgroundWorker() = default;
  ~BackgroundWorker() { Stop(); }
  BackgroundWorker(const BackgroundWorker&) = delete;
  BackgroundWorker& operator=(const BackgroundWorker&) = delete;

  // Hands `task` over, starting the thread at the first task. False, with nothing run, when
  // the worker holds an unfinished task or no thread can be had: the caller then does the work
  // itself. The task must not throw.
  bool Post(std::function<void()> task);
  // True once the task handed over last is done (at once when there is none), waiting at most
  // `limit` for it.
  bool WaitFor(std::chrono::milliseconds limit);
  // Waits for the task in hand, then ends the thread; the next Post starts a new one.
  void Stop();

 private:
  void Loop();

  std::mutex mutex_;
  std::condition_variable posted_;
  std::condition_variable finished_;
  std::function<void()> task_;
  bool busy_ = false;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace qr
