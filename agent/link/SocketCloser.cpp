#include "SocketCloser.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace Agent {

struct SocketCloser::Work {
  std::mutex mutex;
  std::condition_variable done;
  std::deque<Descriptor> waiting;
  std::size_t threads = 0;
};

SocketCloser::SocketCloser() : work_(std::make_shared<Work>()) {}

SocketCloser::~SocketCloser() {
  std::unique_lock lock(work_->mutex);
  work_->done.wait(lock, [this] { return work_->threads == 0; });
}

SocketCloser& SocketCloser::ofProcess() {
  static SocketCloser closer;
  return closer;
}

void SocketCloser::close(Descriptor socket) {
  {
    const std::lock_guard lock(work_->mutex);
    work_->waiting.push_back(std::move(socket));
    if (work_->threads == mostThreads) return;
    ++work_->threads;
  }
  try {
    std::thread([work = work_] { closeAll(*work); }).detach();
  } catch (const std::system_error&) {  // a limit of processes or memory
    closeAll(*work_);
  }
}

// A thread ends when nothing waits, so nothing waits without a thread.
void SocketCloser::closeAll(Work& work) {
  std::unique_lock lock(work.mutex);
  while (!work.waiting.empty()) {
    Descriptor socket = std::move(work.waiting.front());
    work.waiting.pop_front();
    lock.unlock();
    socket.close();
    lock.lock();
  }
  if (--work.threads == 0) work.done.notify_all();
}

}  // namespace Agent
