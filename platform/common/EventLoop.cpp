#include "platform/common/EventLoop.h"

#include "platform/ThreadSafety.h"

#include <asio.hpp>
#include <memory>
#include <thread>
#include <utility>

namespace quenlor::platform {

class EventLoop::Engine {
 public:
  Engine() : keepRunning(asio::make_work_guard(context)), thread([this] { run(); }) {}

  void stop() {
    context.stop();
    if (thread.joinable()) thread.join();
  }

  void post(Work work) { asio::post(context, std::move(work)); }

  void postAt(Clock::time_point deadline, Work work) {
    auto timer = std::make_shared<asio::steady_timer>(context, deadline);
    timer->async_wait([this, timer, work = std::move(work)](const asio::error_code& error) {
      if (error) return;
      runPoll();
      work();
    });
  }

  void startPolling(Work newPoll) EXCLUDES(pollMutex) {
    MutexLock lock(pollMutex);
    poll = std::move(newPoll);
  }

  void stopPolling() EXCLUDES(pollMutex) {
    MutexLock lock(pollMutex);
    poll = nullptr;
  }

 private:
  void runPoll() EXCLUDES(pollMutex) {
    MutexLock lock(pollMutex);
    if (poll) poll();
  }

  void run() {
    context.run();
    // After stop(), run the work that is ready, and what it posts, without waiting.
    context.restart();
    context.poll();
  }

  // One thread runs it.
  asio::io_context context{1};

  Mutex pollMutex;
  Work poll GUARDED_BY(pollMutex);

  asio::executor_work_guard<asio::io_context::executor_type> keepRunning;
  std::thread thread;
};

EventLoop::EventLoop() : engine(std::make_unique<Engine>()) {}

// Some libraries' unique_ptr is null by the time it destroys its object. The work that the thread
// still runs may post, and needs the pointer.
EventLoop::~EventLoop() {
  stop();
}

void EventLoop::stop() {
  engine->stop();
}

void EventLoop::post(Work work) {
  engine->post(std::move(work));
}

void EventLoop::postAt(Clock::time_point deadline, Work work) {
  engine->postAt(deadline, std::move(work));
}

void EventLoop::startPolling(Work poll) {
  engine->startPolling(std::move(poll));
}

void EventLoop::stopPolling() {
  engine->stopPolling();
}

}  // namespace quenlor::platform
