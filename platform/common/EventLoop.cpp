#include "platform/common/EventLoop.h"

#include <asio.hpp>
#include <thread>
#include <utility>

namespace quenlor::platform {

class EventLoop::Engine {
 public:
  Engine() : keepRunning(asio::make_work_guard(context)), thread([this] { run(); }) {}

  ~Engine() {
    context.stop();
    thread.join();
  }

  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // One thread runs the context.
  asio::io_context context{1};

 private:
  void run() {
    context.run();
    // Stopped: go on with what is ready, and with what that posts in turn, but wait for nothing.
    context.restart();
    context.poll();
  }

  asio::executor_work_guard<asio::io_context::executor_type> keepRunning;
  std::thread thread;
};

EventLoop::EventLoop() : engine(std::make_unique<Engine>()) {}

EventLoop::~EventLoop() = default;

void EventLoop::post(Work work) {
  asio::post(engine->context, std::move(work));
}

void EventLoop::postAt(Clock::time_point deadline, Work work) {
  auto timer = std::make_shared<asio::steady_timer>(engine->context, deadline);
  timer->async_wait([timer, work = std::move(work)](const asio::error_code& error) {
    if (!error) work();
  });
}

}  // namespace quenlor::platform
