//===- ReplacementFile.h - Files that replace their target whole -*- C++ -*-===//
//
// A report or table is written under a temporary name beside the file it replaces
// and renamed onto it only once every byte, the flush to the disk and the close have
// succeeded: a full disk, a file size limit or an I/O error leaves the earlier file
// as it was and is reported. A link is followed, so the file it points at is the one
// replaced. A device or a pipe cannot be replaced; it is written in place.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_REPLACEMENTFILE_H
#define TWISS_REPLACEMENTFILE_H

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <optional>

/// A new file beside the one named, put in its place by commit() and removed unless
/// committed.
class ReplacementFile {
public:
  /// Creates the temporary file beside the file that `path` names (after its links).
  /// It gets the permissions of the file it replaces, or those the user's mask gives
  /// a new file. A target that exists and is not a regular file is refused.
  explicit ReplacementFile(const QString &path);
  /// Removes the temporary file unless it was committed.
  ~ReplacementFile();
  /// The temporary file belongs to one object: not copied.
  ReplacementFile(const ReplacementFile &) = delete;
  ReplacementFile &operator=(const ReplacementFile &) = delete;

  /// Whether the temporary file was created; errorString() says why not.
  bool isOpen() const { return descriptor >= 0; }
  /// The temporary file's name, for writers that open it themselves.
  const QString &temporaryPath() const { return temporary; }
  /// Appends bytes to the temporary file; false with errorString() set when not all
  /// of them were written.
  bool write(const QByteArray &bytes);
  /// Flushes the temporary file to the disk, closes it and renames it onto the
  /// target; false with errorString() set when any of these fails.
  bool commit();
  /// Why the last operation failed, in the system's words.
  const QString &errorString() const { return error; }

private:
  bool fail();

  QString target, temporary, error;
  int descriptor = -1;
  bool committed = false;
};

/// The whole content of a file, written piece by piece as it comes and put in place by
/// finish(): a regular or new file through a ReplacementFile, a device or a pipe in
/// place. A file not finished is left as it was.
class WholeFile {
public:
  explicit WholeFile(const QString &path);
  ~WholeFile();
  WholeFile(const WholeFile &) = delete;
  WholeFile &operator=(const WholeFile &) = delete;

  /// Appends bytes; nothing after a failure.
  void write(const QByteArray &bytes);
  /// Puts the file in place; returns why the first failure since it was opened failed,
  /// in the system's words, or an empty text.
  QString finish();

private:
  /// Writes what waits; nothing after a failure.
  void flush();

  QByteArray pending; ///< pieces not yet written
  std::optional<ReplacementFile> replacement;
  int device = -1; ///< a device or a pipe written in place
  QString error;
};

/// Writes `bytes` as the whole content of the file `path`: a regular or new file is
/// replaced through a ReplacementFile, a device or a pipe is written in place. Returns
/// why it failed in the system's words, or an empty text.
QString writeWholeFile(const QString &path, const QByteArray &bytes);
/// Writes the pieces, one after another, as the whole content of the file: a large
/// text need not be held in one piece.
QString writeWholeFile(const QString &path, const QByteArrayList &pieces);

#endif // TWISS_REPLACEMENTFILE_H
