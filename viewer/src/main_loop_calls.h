// Moves a module's work from the platform's threads to the main loop.
#pragma once

#include <functional>
#include <memory>

class MainLoopCalls {
public:
  // Runs `call` on the main loop unless this object is destroyed before. May be called on any thread.
  void Post(std::function<void()> call) const;

private:
  std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};
