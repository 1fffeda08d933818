//===- ParallelCrossings.cpp - The crossing tests on two threads -----------===//

#include "ParallelCrossings.h"

#include "Console.h"

bool ParallelCrossings::split(const QList<BCSample *> &planes) {
  return !Debug && planes.size() >= MinimumPlanesToSplit;
}

ParallelCrossings::ParallelCrossings(const QList<BCSample *> &planes)
    : own(split(planes) ? planes.mid(0, planes.size() / 2) : planes) {
  if (!split(planes))
    return;
  helped = std::make_unique<CrossingSelector>(planes.mid(planes.size() / 2));
  filling.reserve(BatchSize);
  helper = std::thread([this] { help(); });
}

ParallelCrossings::~ParallelCrossings() {
  if (!helped)
    return;
  handOver();
  {
    std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  helper.join();
}

void ParallelCrossings::trackStep(Step &step) {
  if (helped && !BCSample::firstStep) {
    filling.push_back({BCSample::previous.position, step.position});
    if (filling.size() == BatchSize)
      handOver();
  }
  own.trackStep(step);
}

void ParallelCrossings::handOver() {
  std::unique_lock<std::mutex> lock(mutex);
  changed.wait(lock, [this] { return handedOver.empty(); });
  handedOver.swap(filling);
  lock.unlock();
  changed.notify_all();
}

void ParallelCrossings::help() {
  std::vector<Move> moves;
  moves.reserve(BatchSize);
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait(lock, [this] { return stopping || !handedOver.empty(); });
      if (handedOver.empty())
        return;
      moves.swap(handedOver);
    }
    changed.notify_all();
    for (const Move &move : moves)
      helped->handleMove(move.from, move.to);
    moves.clear();
  }
}
