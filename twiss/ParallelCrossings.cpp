//===- ParallelCrossings.cpp - The crossing tests on two threads -----------===//

#include "ParallelCrossings.h"

#include "Console.h"

ParallelCrossings::ParallelCrossings(const QList<BCSample *> &planes) {
  if (Debug || planes.size() < MinimumPlanesToSplit) {
    all = std::make_unique<CrossingSelector>(planes);
    return;
  }
  for (int g = 0; g < Groups; ++g) {
    qsizetype first = planes.size() * g / Groups, last = planes.size() * (g + 1) / Groups;
    groups.push_back(std::make_unique<CrossingSelector>(planes.mid(first, last - first)));
  }
  filling.reserve(BatchSize);
  testing.reserve(BatchSize);
  helper = std::thread([this] { help(); });
}

ParallelCrossings::~ParallelCrossings() {
  if (all)
    return;
  handOver();
  testGroups(false);
  {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return groupsDone == Groups; });
    stopping = true;
  }
  changed.notify_all();
  helper.join();
}

void ParallelCrossings::trackStep(Step &step) {
  if (all) {
    all->trackStep(step);
    return;
  }
  if (!BCSample::firstStep) {
    filling.push_back({BCSample::previous.position, step.position});
    if (filling.size() == BatchSize)
      handOver();
  }
  BCSample::rememberStep(step);
}

void ParallelCrossings::handOver() {
  testGroups(false); // the caller is ahead: it helps with the batch still being tested
  {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return groupsDone == Groups; });
    testing.swap(filling);
    groupsDone = 0;
    untestedFront = 0;
    untestedBack = Groups;
    ++batches;
  }
  changed.notify_all();
  filling.clear();
}

void ParallelCrossings::testGroups(bool fromFront) {
  // The helper takes the groups from the front and the caller from the back, so that a
  // group's planes usually stay in the cache of the same processor.
  for (;;) {
    int g;
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (untestedFront == untestedBack)
        return;
      g = fromFront ? untestedFront++ : --untestedBack;
    }
    CrossingSelector &group = *groups[size_t(g)];
    for (const Move &move : testing)
      group.handleMove(move.from, move.to);
    std::lock_guard<std::mutex> lock(mutex);
    if (++groupsDone == Groups)
      changed.notify_all();
  }
}

void ParallelCrossings::help() {
  long seen = 0;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait(lock, [&] { return stopping || batches > seen; });
      if (batches == seen)
        return;
      seen = batches;
    }
    testGroups(true);
  }
}
