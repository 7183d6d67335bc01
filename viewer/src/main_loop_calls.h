// Takes work from the platform's threads to the main loop, on behalf of one module.
#pragma once

#include <functional>
#include <memory>

class MainLoopCalls {
public:
  // Runs `call` on the main loop, unless this object is gone by then. Any thread.
  void Post(std::function<void()> call) const;

private:
  std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};
