//===- ReplacementFile.cpp - Files that replace their target whole ----------===//
//
// Plain system calls rather than a buffered device: every failure of a write, of the
// flush to the disk and of the close has to reach the caller before the rename.
//
//===----------------------------------------------------------------------------===//

#include "ReplacementFile.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// As many links as the system itself follows before it gives up.
constexpr int MaxLinks = 40;

QString systemError() {
  return QString::fromLocal8Bit(strerror(errno));
}

/// The file that `path` names after its links; empty, with errno set, for a loop.
QString linkTarget(const QString &path) {
  QString name = path;
  for (int links = 0; links <= MaxLinks; ++links) {
    QFileInfo info(name);
    if (!info.isSymLink())
      return name;
    name = info.symLinkTarget();
  }
  errno = ELOOP;
  return QString();
}

/// Writes all of `bytes` to the open descriptor, going on after interruptions.
bool writeAll(int descriptor, const QByteArray &bytes) {
  const char *next = bytes.constData();
  size_t left = size_t(bytes.size());
  while (left > 0) {
    ssize_t written = ::write(descriptor, next, left);
    if (written < 0 && errno == EINTR)
      continue;
    if (written == 0)
      errno = EIO; // a write that makes no progress would never end
    if (written <= 0)
      return false;
    next += written;
    left -= size_t(written);
  }
  return true;
}

/// The permissions a new file gets from the user's mask.
mode_t newFileMode() {
  mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

} // namespace

ReplacementFile::ReplacementFile(const QString &path) {
  target = linkTarget(path);
  if (target.isEmpty()) {
    fail();
    return;
  }
  QByteArray name = QFile::encodeName(target + ".XXXXXX.part");
  struct stat replaced;
  bool exists = ::stat(QFile::encodeName(target).constData(), &replaced) == 0;
  if (exists && !S_ISREG(replaced.st_mode)) {
    // Renaming onto a device would destroy it, onto a directory is refused.
    error = S_ISDIR(replaced.st_mode) ? "is a directory" : "is not a regular file";
    return;
  }
  descriptor = mkostemps(name.data(), int(strlen(".part")), O_CLOEXEC);
  if (descriptor < 0) {
    fail();
    return;
  }
  temporary = QFile::decodeName(name);
  if (fchmod(descriptor, exists ? replaced.st_mode & 07777 : newFileMode()) != 0)
    fail();
}

ReplacementFile::~ReplacementFile() {
  if (descriptor >= 0)
    ::close(descriptor);
  if (!committed && !temporary.isEmpty())
    ::unlink(QFile::encodeName(temporary).constData());
}

bool ReplacementFile::write(const QByteArray &bytes) {
  return isOpen() && (writeAll(descriptor, bytes) || fail());
}

bool ReplacementFile::commit() {
  if (!isOpen() || !error.isEmpty())
    return false;
  // A file system that cannot flush on demand (EINVAL) still writes on close.
  if (fsync(descriptor) != 0 && errno != EINVAL)
    return fail();
  int closing = descriptor;
  descriptor = -1;
  if (::close(closing) != 0)
    return fail();
  if (::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(target).constData()) !=
      0)
    return fail();
  committed = true;
  return true;
}

bool ReplacementFile::fail() {
  error = systemError();
  return false;
}

QString writeWholeFile(const QString &path, const QByteArray &bytes) {
  return writeWholeFile(path, QByteArrayList{bytes});
}

QString writeWholeFile(const QString &path, const QByteArrayList &pieces) {
  WholeFile file(path);
  for (const QByteArray &piece : pieces)
    file.write(piece);
  return file.finish();
}

WholeFile::WholeFile(const QString &path) {
  QString target = linkTarget(path);
  if (target.isEmpty()) {
    error = systemError();
    return;
  }
  struct stat existing;
  if (::stat(QFile::encodeName(target).constData(), &existing) == 0 && !S_ISREG(existing.st_mode) &&
      !S_ISDIR(existing.st_mode)) {
    // A device or a pipe cannot be replaced: it is written in place.
    device = ::open(QFile::encodeName(target).constData(), O_WRONLY | O_CLOEXEC);
    if (device < 0)
      error = systemError();
    return;
  }
  replacement.emplace(path);
}

WholeFile::~WholeFile() {
  if (device >= 0)
    ::close(device);
}

void WholeFile::write(const QByteArray &bytes) {
  // Small pieces wait to go out together: a system call each would cost more than
  // their bytes. A first piece is shared, not copied.
  constexpr qsizetype FlushBytes = 1 << 20;
  pending.append(bytes);
  if (pending.size() >= FlushBytes)
    flush();
}

void WholeFile::flush() {
  if (error.isEmpty() && !pending.isEmpty() &&
      (device >= 0 ? !writeAll(device, pending) : !replacement->write(pending)))
    error = device >= 0 ? systemError() : replacement->errorString();
  pending.clear();
}

QString WholeFile::finish() {
  flush();
  if (device >= 0) {
    const int closing = device;
    device = -1;
    if (::close(closing) != 0 && error.isEmpty())
      error = systemError();
    return error;
  }
  if (error.isEmpty() && replacement && !replacement->commit())
    error = replacement->errorString();
  return error;
}
