// LambdaAct: an action that runs a function on the main thread, to look at or change what only that thread may touch.
#pragma once

#include <functional>
#include <utility>

#include "mainqueue.h"

class LambdaAct : public ThreadAct {
 public:
  explicit LambdaAct(std::function<void()> rToRun) : rRun(std::move(rToRun)) {}
  void performThread() override {}
  void performMain() override { rRun(); }

 private:
  std::function<void()> rRun;
};
