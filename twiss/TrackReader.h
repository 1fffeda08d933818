//===- TrackReader.h - Steps from AllTracks.txt ----------------*- C++ -*-===//
//
// One step per line, twelve columns: x y z Px Py Pz t PDGid EventID TrackID, a
// further integer and a further real. Blank lines, comments and lines from which
// fewer than twelve fields can be read are skipped silently.
//
// The file is read in chunks of whole lines, which worker threads convert while the
// caller takes the steps in file order (with one thread, the caller converts them). A line of plain
// decimal numbers separated by blanks or tabs is converted directly; any other line (a '+' sign,
// "inf", a number out of range, a carriage return, a NUL or non-ASCII byte, ...) goes through the
// text stream's own rules: carriage returns removed, decoded as UTF-8, simplified,
// scanned with sscanf. A file that begins with a byte-order mark is read through a
// text stream as a whole, which honours the mark.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_TRACKREADER_H
#define TWISS_TRACKREADER_H

#include "InputFile.h"
#include "Step.h"
#include "ThreadCount.h"

#include <QFile>
#include <QString>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// What became of the lines of a track file.
struct TrackLineCounts {
  long steps = 0;     ///< accepted as steps
  long comments = 0;  ///< blank lines and lines beginning with '#'
  long malformed = 0; ///< fewer than twelve readable fields

  /// Adds the counts of other lines (another chunk, another file).
  TrackLineCounts &operator+=(const TrackLineCounts &other) {
    steps += other.steps;
    comments += other.comments;
    malformed += other.malformed;
    return *this;
  }
};

/// Reads the accepted lines of a track file as steps, one at a time.
class TrackReader {
public:
  /// How the lines are read: in blocks, or line by line through a text stream.
  enum Mode { Blocks, TextStream };

  /// Opens the file; in blocks, `threads` threads convert the lines (the caller alone
  /// for 1), but no more than there are processors to run them: a converter waiting
  /// for a processor only delays the caller, which needs one too.
  explicit TrackReader(const QString &filename, Mode mode = Blocks, int threads = threadCount());
  /// Reads in blocks from an open descriptor (a pipe), which stays open afterwards.
  TrackReader(int descriptor, int threads);
  /// Stops and joins the converting threads.
  ~TrackReader();
  /// Whether the file could be opened for reading.
  bool isOpen() const { return open; }
  /// The next accepted step; false at the end of the file.
  bool next(Step &step);
  /// The lines read so far, complete once next() has returned false.
  TrackLineCounts lineCounts();
  /// Bytes of the file taken for conversion so far (0 when read through a text stream).
  long long bytesRead() const { return bytesCut.load(std::memory_order_relaxed); }
  /// Why the file could not be read to its end ("Input/output error"), once next()
  /// has returned false; empty when every byte was read.
  QString failure();

private:
  QFile file;
  bool open = false;
  qint64 sizeAtOpen = 0;  ///< a file that holds less at its end has shrunk under the reader
  const int workerCount;  ///< threads converting lines; 0: the caller converts them
  const long chunksAhead; ///< chunks read ahead of the caller at the most
  const size_t chunkSize; ///< bytes read at a time
  std::unique_ptr<TextLines> stream;

  // Shared with the workers, under the mutex.
  std::mutex mutex;
  std::condition_variable roomToRead; ///< workers wait here for the caller to take chunks
  std::condition_variable chunkReady; ///< the caller waits here for its next chunk
  std::vector<char> carry;            ///< the start of a line not yet in a chunk
  bool fileDone = false;              ///< every byte of the file is in a chunk
  bool stopping = false;
  QString readFailure;  ///< why the file ended early, if it did
  long chunksRead = 0;  ///< chunks cut from the file so far
  long chunksTaken = 0; ///< chunks handed to the caller so far
  std::map<long, std::vector<Step>> converted;
  TrackLineCounts counts; ///< of the chunks converted and of the text stream's lines
  std::atomic<long long> bytesCut{0};
  std::vector<std::thread> workers;

  // The caller's side.
  std::vector<Step> steps;
  size_t nextStep = 0;

  void work();
  bool takeConverted();
  bool convertHere();
  static void convertChunk(const std::vector<char> &chunk, std::vector<Step> &result,
                           TrackLineCounts &chunkCounts);
  bool readChunk(std::vector<char> &chunk);
  /// Reads up to `size` bytes; 0 at the end of the file and after a failure, which is
  /// kept in readFailure.
  qint64 readSome(char *data, qint64 size);
  /// Reads on to the end of the line that fills the chunk and puts the line's head in
  /// its place; false, with the file where it was, when the line must be read whole.
  bool readLongLine(std::vector<char> &chunk);
  explicit TrackReader(int threads);
  /// Starts reading the file just opened (or not: `opened`).
  void start(bool opened);
  void useTextStream(const QString &filename);
};

/// Reads one line as the text stream gives it (simplified, 8-bit); false when fewer
/// than twelve fields are read.
bool parseTrackLine(const QByteArray &line, Step &step);

/// What one line of a track file holds.
enum class TrackLine { Step, Comment, Malformed };

/// Reads one simplified line of a text stream: a comment, a step or neither.
TrackLine readTrackLine(const QString &line, Step &step);

/// Reads one raw line of the file exactly as a text stream in text mode would.
TrackLine readRawTrackLine(const char *begin, const char *end, Step &step);

#endif // TWISS_TRACKREADER_H
