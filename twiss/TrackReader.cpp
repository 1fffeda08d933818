//===- TrackReader.cpp - Steps from AllTracks.txt --------------------------===//

#include "TrackReader.h"

#include <QStringDecoder>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

const size_t BlockSize = 1 << 20;

enum class FastParse { Accepted, Skipped, Unsure };

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
    return FastParse::Skipped;
  double *reals[] = {&step.position.x, &step.position.y, &step.position.z, &step.momentum.x,
                     &step.momentum.y, &step.momentum.z, &step.t};
  int *integers[] = {&step.PDGid, &step.EventID, &step.TrackID, &step.extraID};
  for (int field = 0; field < 12; ++field) {
    if (p == end)
      return FastParse::Skipped; // fewer than twelve fields
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

} // namespace

bool parseTrackLine(const QByteArray &line, Step &step) {
  int fields = sscanf(line.constData(), "%lf%lf%lf%lf%lf%lf%lf%d%d%d%d%lf", &step.position.x,
                      &step.position.y, &step.position.z, &step.momentum.x, &step.momentum.y,
                      &step.momentum.z, &step.t, &step.PDGid, &step.EventID, &step.TrackID,
                      &step.extraID, &step.extraValue);
  return fields >= 12;
}

bool parseRawTrackLine(const char *begin, const char *end, Step &step) {
  // Text mode deletes every carriage return, not only the one before a newline.
  QByteArray raw;
  raw.reserve(end - begin);
  for (const char *p = begin; p < end; ++p)
    if (*p != '\r')
      raw.append(*p);
  // Only a mark at the start of the file is a byte-order mark; inside it stays a
  // character (U+FEFF), as it does for the text stream.
  QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
  QString line = QString(decoder(raw)).simplified();
  if (line.isEmpty() || line.startsWith("#"))
    return false;
  return parseTrackLine(line.toLocal8Bit(), step);
}

TrackReader::TrackReader(const QString &filename, Mode mode) : file(filename) {
  if (mode == TextStream) {
    useTextStream(filename);
    return;
  }
  open = file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
  if (!open)
    return;
  buffer.resize(BlockSize);
  fill();
  if (startsWithByteOrderMark(buffer.data(), filled))
    useTextStream(filename);
}

void TrackReader::useTextStream(const QString &filename) {
  file.close();
  file.setFileName(filename);
  open = file.open(QIODevice::ReadOnly | QIODevice::Text);
  if (open)
    stream = std::make_unique<QTextStream>(&file);
}

bool TrackReader::fill() {
  if (start > 0) {
    memmove(buffer.data(), buffer.data() + start, filled - start);
    filled -= start;
    start = 0;
  }
  if (filled == buffer.size())
    buffer.resize(buffer.size() * 2); // a line longer than the buffer
  qint64 count = file.read(buffer.data() + filled, qint64(buffer.size() - filled));
  if (count <= 0) {
    atEnd = true;
    return false;
  }
  filled += size_t(count);
  return true;
}

bool TrackReader::nextLine(const char *&begin, const char *&end) {
  for (;;) {
    char *data = buffer.data();
    if (void *newline = memchr(data + start, '\n', filled - start)) {
      begin = data + start;
      end = static_cast<char *>(newline);
      start = size_t(end - data) + 1;
      return true;
    }
    if (atEnd || !fill()) {
      if (start == filled)
        return false;
      begin = buffer.data() + start; // the last line has no newline
      end = buffer.data() + filled;
      start = filled;
      return true;
    }
  }
}

bool TrackReader::next(Step &step) {
  if (stream) {
    while (!stream->atEnd()) {
      QString line = stream->readLine().simplified();
      if (line.isEmpty() || line.startsWith("#"))
        continue;
      if (parseTrackLine(line.toLocal8Bit(), step))
        return true;
    }
    return false;
  }
  const char *begin, *end;
  while (nextLine(begin, end)) {
    switch (parseFast(begin, end, step)) {
    case FastParse::Accepted:
      return true;
    case FastParse::Skipped:
      break;
    case FastParse::Unsure:
      if (parseRawTrackLine(begin, end, step))
        return true;
      break;
    }
  }
  return false;
}
