//===- TrackSource.h - Where the lines of a track file come from -*- C++ -*-===//
//
// A plain track file is read by the track reader itself. A compressed one (zstd, gzip
// or xz, told by its first bytes), standard input and a named pipe (whose first bytes,
// once read to tell the compression, cannot be read again) are read on a thread of
// their own, which hands the text to the reader through a pipe: the pipe bounds what
// waits in memory, and the reader reads it as it reads any pipe, on its own threads.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_TRACKSOURCE_H
#define OPTICS_TRACKSOURCE_H

#include "Decompression.h"
#include "TrackReader.h"

#include <QFile>
#include <QString>
#include <atomic>
#include <memory>
#include <thread>

/// The text of one track file, plain or compressed, or of standard input ("-").
class TrackSource {
public:
  /// Opens the file; throws an InputError when it cannot be opened, or when its name
  /// says one compression (.zst, .gz, .xz) and its bytes hold another or none.
  explicit TrackSource(const QString &path);
  /// Stops the thread if the reader left before the end.
  ~TrackSource();
  TrackSource(const TrackSource &) = delete;
  TrackSource &operator=(const TrackSource &) = delete;

  /// The file as messages name it: its path, or "standard input".
  QString name() const;
  /// How the file's bytes are stored.
  Compression compression() const { return stored; }
  /// A reader of the text, converting on `threads` threads; once only.
  std::unique_ptr<TrackReader> openReader(int threads);
  /// Throws an InputError if the text ended before the end of the file: a failed read,
  /// corrupt or truncated data. For once the reader has come to its end.
  void checkEnd();
  /// Whether the reader reads the file itself (a plain file), not the thread's pipe.
  bool readDirectly() const { return direct; }
  /// Bytes of the file taken by the thread so far (compressed ones for a compressed
  /// file); 0 when the reader reads the file itself.
  long long bytesTaken() const { return taken.load(std::memory_order_relaxed); }

private:
  QString path;
  QFile file;
  Compression stored = Compression::None;
  QByteArray head; ///< the first bytes, read to tell the compression
  qint64 sizeAtOpen = 0;
  int pipeEnds[2] = {-1, -1};
  std::thread thread;
  std::atomic<long long> taken{0};
  QString readFailure;   ///< why a read of the file failed; the thread's until it ends
  QString decodeFailure; ///< why the data could not be decoded; likewise

  bool direct = false; ///< a plain file that the reader reads itself

  void readHead();
  void pump();
};

#endif // OPTICS_TRACKSOURCE_H
