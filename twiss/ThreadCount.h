//===- ThreadCount.h - How many threads a run uses -------------*- C++ -*-===//
//
// A run converts track lines and tests crossings on as many threads as the process
// may run on: the processors of its affinity mask, not those installed, so a batch
// job confined to four cores of a large node uses four. TWISS_THREADS in the
// environment overrides the count; 1 keeps everything on the calling thread. The
// output does not depend on the count.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_THREADCOUNT_H
#define TWISS_THREADCOUNT_H

/// The most threads a run uses, whatever it is asked for: the memory that the reading
/// ahead and the batches of moves take is bounded for this many.
constexpr int MaxThreads = 64;

/// A thread count written as a whole decimal number from 1 up; 0 for anything else.
/// Counts above MaxThreads are taken as MaxThreads.
int parseThreadCount(const char *text);

/// The processors that the process's affinity mask allows, at most MaxThreads.
int processorCount();

/// The threads a run uses: TWISS_THREADS when it holds a valid count (see
/// parseThreadCount; other values are ignored), else the processors that the
/// process's affinity mask allows, at most MaxThreads.
int threadCount();

#endif // TWISS_THREADCOUNT_H
