//===- TrackReader.cpp - Steps from AllTracks.txt --------------------------===//

#include "TrackReader.h"

#include "LineHead.h"

#include <QStringDecoder>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

/// The file bytes read ahead of the caller at the most, whatever the number of
/// threads: bounds the memory however large the file.
const size_t ReadAheadBytes = size_t(6) << 20;
const size_t LargestChunk = size_t(512) << 10, SmallestChunk = size_t(64) << 10;
/// A line longer than this, thousands of times a step line, is read from its head
/// (see LineHead) instead of being held whole.
const size_t LongLineBytes = size_t(1) << 20;

/// The newlines of a chunk. Counted in 32 bits, which the compiler takes many bytes at a
/// time: four times as fast as std::count's count in 64 bits; a chunk is far shorter than
/// 4 GB.
size_t lineCount(const std::vector<char> &chunk) {
  uint32_t count = 0;
  for (char c : chunk)
    count += c == '\n';
  return count;
}

enum class FastParse { Accepted, Comment, Malformed, Unsure };

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

const char *skipBlanks(const char *p, const char *end) {
  while (p < end && isBlank(*p))
    ++p;
  return p;
}

/// Converts the token at p with from_chars; false unless the whole token, which must
/// end at a blank or the line's end, is a number in range.
template <typename T> bool convertWhole(const char *&p, const char *end, T &value) {
  auto [stop, ec] = std::from_chars(p, end, value);
  if (ec != std::errc() || (stop < end && !isBlank(*stop)))
    return false;
  p = stop;
  return true;
}

const double PowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// Converts a plain decimal number (optional '-', digits, point, exponent). A leading
/// '+', "inf", "nan" and hex floats are left to sscanf, whose reading of them
/// from_chars does not share. When the digits and the power of ten are both exact
/// doubles, one multiplication or division rounds correctly (Clinger's fast path);
/// every other number goes through from_chars, which also rounds correctly.
bool convert(const char *&p, const char *end, double &value) {
  const char *s = p;
  bool negative = s < end && *s == '-';
  if (negative)
    ++s;
  uint64_t mantissa = 0;
  int digits = 0, fraction = 0;
  for (; s < end && *s >= '0' && *s <= '9'; ++s, ++digits)
    mantissa = mantissa * 10 + uint64_t(*s - '0');
  if (s < end && *s == '.')
    for (++s; s < end && *s >= '0' && *s <= '9'; ++s, ++digits, ++fraction)
      mantissa = mantissa * 10 + uint64_t(*s - '0');
  if (digits == 0)
    return false;
  int exponent = 0;
  if (s < end && (*s == 'e' || *s == 'E')) {
    const char *e = s + 1;
    bool negativeExponent = e < end && *e == '-';
    if (e < end && (*e == '-' || *e == '+'))
      ++e;
    int exponentDigits = 0;
    for (; e < end && *e >= '0' && *e <= '9' && exponentDigits < 4; ++e, ++exponentDigits)
      exponent = exponent * 10 + (*e - '0');
    if (exponentDigits == 0 || exponentDigits == 4)
      return convertWhole(p, end, value);
    exponent = negativeExponent ? -exponent : exponent;
    s = e;
  }
  if (s < end && !isBlank(*s))
    return false;
  int power = exponent - fraction;
  if (digits > 19 || mantissa > (uint64_t(1) << 53) || power < -22 || power > 22)
    return convertWhole(p, end, value);
  double v = double(mantissa);
  v = power >= 0 ? v * PowersOfTen[power] : v / PowersOfTen[-power];
  value = negative ? -v : v;
  p = s;
  return true;
}

/// Converts a plain decimal integer in the range of int.
bool convert(const char *&p, const char *end, int &value) {
  if (*p == '+')
    return false; // accepted by sscanf, not by from_chars
  return convertWhole(p, end, value);
}

/// The common case: plain decimal numbers separated by blanks or tabs. Unsure for any
/// line whose reading depends on the text stream's finer rules.
FastParse parseFast(const char *p, const char *end, Step &step) {
  p = skipBlanks(p, end);
  if (p == end || *p == '#')
    return FastParse::Comment;
  double *reals[] = {&step.position.x, &step.position.y, &step.position.z, &step.momentum.x,
                     &step.momentum.y, &step.momentum.z, &step.t};
  int *integers[] = {&step.PDGid, &step.EventID, &step.TrackID, &step.extraID};
  for (int field = 0; field < 12; ++field) {
    if (p == end)
      return FastParse::Malformed; // fewer than twelve fields
    bool converted = field < 7    ? convert(p, end, *reals[field])
                     : field < 11 ? convert(p, end, *integers[field - 7])
                                  : convert(p, end, step.extraValue);
    if (!converted)
      return FastParse::Unsure;
    p = skipBlanks(p, end);
  }
  return FastParse::Accepted; // anything after the twelfth field is ignored
}

bool startsWithByteOrderMark(const char *data, size_t size) {
  auto startsWith = [&](const char *mark, size_t length) {
    return size >= length && memcmp(data, mark, length) == 0;
  };
  return startsWith("\xEF\xBB\xBF", 3) || startsWith("\xFE\xFF", 2) || startsWith("\xFF\xFE", 2) ||
         startsWith("\x00\x00\xFE\xFF", 4);
}

/// Counts a line of this kind; true for a step.
bool tally(TrackLineCounts &counts, TrackLine kind) {
  switch (kind) {
  case TrackLine::Step:
    ++counts.steps;
    return true;
  case TrackLine::Comment:
    ++counts.comments;
    return false;
  case TrackLine::Malformed:
    ++counts.malformed;
    return false;
  }
  return false;
}

} // namespace

bool parseTrackLine(const QByteArray &line, Step &step) {
  int fields = sscanf(line.constData(), "%lf%lf%lf%lf%lf%lf%lf%d%d%d%d%lf", &step.position.x,
                      &step.position.y, &step.position.z, &step.momentum.x, &step.momentum.y,
                      &step.momentum.z, &step.t, &step.PDGid, &step.EventID, &step.TrackID,
                      &step.extraID, &step.extraValue);
  return fields >= 12;
}

TrackLine readTrackLine(const QString &line, Step &step) {
  if (line.isEmpty() || line.startsWith("#"))
    return TrackLine::Comment;
  return parseTrackLine(line.toLocal8Bit(), step) ? TrackLine::Step : TrackLine::Malformed;
}

TrackLine readRawTrackLine(const char *begin, const char *end, Step &step) {
  // Text mode deletes every carriage return, not only the one before a newline.
  QByteArray raw;
  raw.reserve(end - begin);
  for (const char *p = begin; p < end; ++p)
    if (*p != '\r')
      raw.append(*p);
  // Only a mark at the start of the file is a byte-order mark; inside it stays a
  // character (U+FEFF), as it does for the text stream. A sequence cut by the end of
  // the line is invalid, as the newline after it makes it for the text stream: it is
  // decoded as a replacement character, not kept for bytes that never come.
  QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom |
                                                     QStringConverter::Flag::Stateless);
  return readTrackLine(QString(decoder(raw)).simplified(), step);
}

TrackReader::TrackReader(int threads)
    : workerCount(threads > 1 ? std::min(threads, processorCount()) : 0),
      chunksAhead(std::max(4, workerCount + 2)),
      chunkSize(std::clamp(ReadAheadBytes / size_t(chunksAhead), SmallestChunk, LargestChunk)) {}

TrackReader::TrackReader(const QString &filename, Mode mode, int threads) : TrackReader(threads) {
  file.setFileName(filename);
  if (mode == TextStream)
    useTextStream(filename);
  else
    start(file.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
}

TrackReader::TrackReader(int descriptor, int threads) : TrackReader(threads) {
  start(file.open(descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered,
                  QFileDevice::DontCloseHandle));
}

void TrackReader::start(bool opened) {
  open = opened;
  if (!open)
    return;
  sizeAtOpen = file.size();
  char head[4];
  qint64 count = file.peek(head, sizeof head);
  if (startsWithByteOrderMark(head, count > 0 ? size_t(count) : 0)) {
    // A file is read again from its start; a pipe goes on from the bytes peeked at.
    if (file.fileName().isEmpty()) {
      file.setTextModeEnabled(true);
      stream = std::make_unique<TextLines>(file);
    } else {
      useTextStream(file.fileName());
    }
    return;
  }
  for (int i = 0; i < workerCount; ++i)
    workers.emplace_back([this] { work(); });
}

TrackReader::~TrackReader() {
  {
    std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  roomToRead.notify_all();
  for (std::thread &worker : workers)
    worker.join();
}

void TrackReader::useTextStream(const QString &filename) {
  file.close();
  file.setFileName(filename);
  open = file.open(QIODevice::ReadOnly | QIODevice::Text);
  if (open)
    stream = std::make_unique<TextLines>(file);
}

qint64 TrackReader::readSome(char *data, qint64 size) {
  qint64 count = file.read(data, size);
  if (count <= 0)
    readFailure = readEndFailure(file, sizeAtOpen);
  return std::max<qint64>(count, 0);
}

bool TrackReader::readChunk(std::vector<char> &chunk) {
  chunk.swap(carry);
  carry.clear();
  size_t searched = 0;
  // A file that cannot be read again (a pipe) holds every line whole.
  bool wholeLine = file.isSequential();
  for (;;) {
    size_t filled = chunk.size();
    chunk.resize(filled + chunkSize);
    qint64 count = readSome(chunk.data() + filled, qint64(chunkSize));
    chunk.resize(filled + size_t(count));
    if (count == 0) {
      fileDone = true; // the last line may lack its newline
      return !chunk.empty() && readFailure.isEmpty();
    }
    bytesCut.fetch_add(count, std::memory_order_relaxed);
    // Cut after the last newline; a line longer than a chunk makes the chunk grow.
    for (size_t i = chunk.size(); i > searched; --i) {
      if (chunk[i - 1] == '\n') {
        carry.assign(chunk.begin() + long(i), chunk.end());
        chunk.resize(i);
        return true;
      }
    }
    searched = chunk.size();
    // No newline yet: the chunk is the start of one line.
    if (chunk.size() >= LongLineBytes && !wholeLine) {
      if (readLongLine(chunk))
        return true;
      wholeLine = true;
    }
  }
}

bool TrackReader::readLongLine(std::vector<char> &chunk) {
  const qint64 resume = file.pos();
  LineHead head;
  head.append(chunk.data(), chunk.size());
  std::vector<char> piece(chunkSize);
  long long readOn = 0;
  bool ended = false, atEnd = false;
  std::vector<char> rest;
  while (!ended && !head.needsWholeLine()) {
    qint64 count = readSome(piece.data(), qint64(piece.size()));
    if (count == 0) {
      atEnd = true; // the last line may lack its newline
      break;
    }
    readOn += count;
    const char *begin = piece.data(), *end = begin + count;
    const char *newline = static_cast<const char *>(memchr(begin, '\n', size_t(count)));
    ended = newline != nullptr;
    head.append(begin, size_t((ended ? newline : end) - begin));
    if (ended)
      rest.assign(newline + 1, end);
  }
  if (head.needsWholeLine()) {
    file.seek(resume); // back to where the chunk ends, to read the line whole
    return false;
  }
  bytesCut.fetch_add(readOn, std::memory_order_relaxed);
  fileDone = atEnd;
  carry.swap(rest);
  head.end();
  QByteArray text = head.text();
  chunk.assign(text.begin(), text.end());
  if (ended)
    chunk.push_back('\n');
  return true;
}

void TrackReader::convertChunk(const std::vector<char> &chunk, std::vector<Step> &result,
                               TrackLineCounts &chunkCounts) {
  // A line holds one step at most, so room for one a line never grows the vector
  // (growing would hold up to twice the memory the steps need). Room for the shortest
  // possible lines instead would be four times what lines of usual length need: the
  // allocator, reusing such blocks at other offsets, would touch all of it in time.
  result.clear();
  result.reserve(lineCount(chunk) + 1);
  Step step;
  const char *p = chunk.data(), *end = p + chunk.size();
  while (p < end) {
    const char *newline = static_cast<const char *>(memchr(p, '\n', size_t(end - p)));
    const char *lineEnd = newline ? newline : end;
    switch (parseFast(p, lineEnd, step)) {
    case FastParse::Accepted:
      ++chunkCounts.steps;
      result.push_back(step);
      break;
    case FastParse::Comment:
      ++chunkCounts.comments;
      break;
    case FastParse::Malformed:
      ++chunkCounts.malformed;
      break;
    case FastParse::Unsure:
      if (tally(chunkCounts, readRawTrackLine(p, lineEnd, step)))
        result.push_back(step);
      break;
    }
    p = lineEnd + 1;
  }
}

void TrackReader::work() {
  std::vector<char> chunk;
  for (;;) {
    long sequence;
    {
      std::unique_lock<std::mutex> lock(mutex);
      roomToRead.wait(lock, [this] { return stopping || chunksRead - chunksTaken < chunksAhead; });
      if (stopping || fileDone)
        return;
      if (!readChunk(chunk)) {
        chunkReady.notify_one(); // the caller may wait for a chunk that will not come
        roomToRead.notify_all(); // the other workers may wait for room: they can stop
        return;
      }
      sequence = chunksRead++;
    }
    std::vector<Step> result;
    TrackLineCounts chunkCounts;
    convertChunk(chunk, result, chunkCounts);
    {
      std::lock_guard<std::mutex> lock(mutex);
      counts += chunkCounts;
      converted[sequence] = std::move(result);
    }
    chunkReady.notify_one();
  }
}

QString TrackReader::failure() {
  std::lock_guard<std::mutex> lock(mutex);
  return readFailure;
}

TrackLineCounts TrackReader::lineCounts() {
  std::lock_guard<std::mutex> lock(mutex);
  return counts;
}

bool TrackReader::next(Step &step) {
  if (stream) {
    QString line;
    while (stream->next(line))
      if (tally(counts, readTrackLine(line.simplified(), step)))
        return true;
    readFailure = stream->failure();
    return false;
  }
  while (nextStep == steps.size()) {
    if (!(workerCount > 0 ? takeConverted() : convertHere()))
      return false;
    nextStep = 0;
  }
  step = steps[nextStep++];
  return true;
}

bool TrackReader::takeConverted() {
  std::unique_lock<std::mutex> lock(mutex);
  chunkReady.wait(lock, [this] {
    return converted.count(chunksTaken) > 0 || (fileDone && chunksTaken == chunksRead);
  });
  auto found = converted.find(chunksTaken);
  if (found == converted.end())
    return false;
  steps = std::move(found->second);
  converted.erase(found);
  ++chunksTaken;
  lock.unlock();
  roomToRead.notify_one();
  return true;
}

bool TrackReader::convertHere() {
  std::vector<char> chunk;
  if (fileDone || !readChunk(chunk))
    return false;
  TrackLineCounts chunkCounts;
  convertChunk(chunk, steps, chunkCounts);
  std::lock_guard<std::mutex> lock(mutex);
  counts += chunkCounts;
  return true;
}
