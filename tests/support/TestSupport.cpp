//===- TestSupport.cpp - Helpers shared by the tests -----------------------===//

#include "TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

std::string stderrOf(const std::function<void()> &body) {
  testing::internal::CaptureStderr();
  try {
    body();
  } catch (...) {
    testing::internal::GetCapturedStderr();
    throw;
  }
  return testing::internal::GetCapturedStderr();
}

std::string stdoutOf(const std::function<void()> &body) {
  fflush(stdout);
  testing::internal::CaptureStdout();
  body();
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

namespace {

ToolRun runWrapped(const char *binary, const QString &directory, const QStringList &arguments,
                   const RunSettings &settings) {
  QStringList command = qEnvironmentVariable("TWISS_WRAPPER").split(' ', Qt::SkipEmptyParts);
  command << binary << arguments;
  return runCommand(directory, command, settings);
}

} // namespace

ToolRun runTool(const QString &directory, const QStringList &arguments,
                const RunSettings &settings) {
  return runWrapped(TWISS_BINARY, directory, arguments, settings);
}

ToolRun runOpticsTool(const QString &directory, const QStringList &arguments,
                      const RunSettings &settings) {
  return runWrapped(OPTICS_BINARY, directory, arguments, settings);
}

ToolRun runCommand(const QString &directory, const QStringList &command,
                   const RunSettings &settings) {
  QTemporaryDir capture;
  const QByteArray outPath = (capture.path() + "/out").toLocal8Bit();
  const QByteArray errPath = (capture.path() + "/err").toLocal8Bit();
  const QByteArray dir = directory.toLocal8Bit();
  std::vector<QByteArray> argBytes;
  for (const QString &a : command)
    argBytes.push_back(a.toLocal8Bit());
  std::vector<char *> argv;
  for (QByteArray &a : argBytes)
    argv.push_back(a.data());
  argv.push_back(nullptr);

  fflush(stdout);
  fflush(stderr);
  pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dir.constData()) != 0)
      _exit(126);
    int out = open(outPath.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(errPath.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(err, 2);
    if (!settings.standardInput.isEmpty()) {
      int in = open(QFile::encodeName(settings.standardInput).constData(), O_RDONLY);
      if (in < 0 || dup2(in, 0) < 0)
        _exit(124);
    }
    // The tool keeps its planes and segments until it exits, deliberately.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    for (const QString &pair : settings.environment)
      putenv(strdup(pair.toLocal8Bit().constData()));
    if (settings.fileSizeBytes >= 0 || settings.unprivileged) {
      // In a coverage build the counters written at exit would be cut short or refused
      // and spoil the ones of every later run: they go to the capture directory instead.
      setenv("GCOV_PREFIX", capture.path().toLocal8Bit().constData(), 1);
      setenv("GCOV_ERROR_FILE", "/dev/null", 1);
    }
    if (settings.fileSizeBytes >= 0) {
      struct rlimit limit = {rlim_t(settings.fileSizeBytes), rlim_t(settings.fileSizeBytes)};
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    if (settings.unprivileged && geteuid() == 0) {
      const uid_t nobody = 65534;
      if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)
        _exit(125);
    }
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int wstatus = 0;
  struct rusage usage = {};
  wait4(pid, &wstatus, 0, &usage);
  ToolRun run;
  run.peakKilobytes = usage.ru_maxrss;
  run.out = readFile(capture.path() + "/out");
  run.err = readFile(capture.path() + "/err");
  if (WIFEXITED(wstatus))
    run.status = WEXITSTATUS(wstatus);
  else if (WIFSIGNALED(wstatus))
    run.signal = WTERMSIG(wstatus);
  return run;
}

ReadLines readLines(TrackReader &reader) {
  ReadLines read;
  Step step;
  while (reader.next(step))
    read.steps.push_back(step);
  read.counts = reader.lineCounts();
  return read;
}

std::string compressedBy(const QString &tool, const std::string &bytes) {
  QTemporaryDir folder;
  writeFile(folder.path() + "/text", bytes);
  ToolRun r = runCommand(folder.path(), {tool, "-c", "text"});
  EXPECT_EQ(r.status, 0) << tool.toStdString() << ": " << r.err;
  return r.out;
}

void writeFile(const QString &path, const std::string &bytes) {
  QFile f(path);
  ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
  f.write(bytes.data(), qint64(bytes.size()));
}

std::string readFile(const QString &path) {
  QFile f(path);
  if (!f.open(QIODevice::ReadOnly))
    return std::string();
  QByteArray all = f.readAll();
  return std::string(all.constData(), size_t(all.size()));
}

QString fullDevice(const QString &directory) {
  QString node = directory + "/full-device";
  if (mknod(QFile::encodeName(node).constData(), S_IFCHR | 0666, makedev(1, 7)) == 0)
    return node;
  return "/dev/full";
}

bool fileExists(const QString &path) {
  return QFileInfo::exists(path);
}

std::string bannerMessages(const std::string &stderrText) {
  const std::string title = "*                translator error                 *";
  QStringList lines = QString::fromStdString(stderrText).split('\n');
  std::string joined;
  for (int i = 0; i + 1 < lines.size(); ++i) {
    if (lines[i].toStdString() != title)
      continue;
    if (!joined.empty())
      joined += "|";
    joined += lines[i + 1].mid(2).toStdString();
  }
  return joined;
}

std::string thrown(const std::function<void()> &body) {
  try {
    body();
  } catch (const QString &e) {
    return e.toStdString();
  }
  return "(nothing thrown)";
}

std::string emptyReport(int s) {
  return QString::asprintf("meanX_%d=0mm\nsigmaX_%d=0mm\nmeanY_%d=0mm\nsigmaY_%d=0mm\n"
                           "entries_%d=0\n",
                           s, s, s, s, s)
      .toStdString();
}

QList<QHash<QString, QString>> csvRows(const std::string &text) {
  QStringList lines = QString::fromStdString(text).split('\n', Qt::SkipEmptyParts);
  QList<QHash<QString, QString>> rows;
  if (lines.isEmpty())
    return rows;
  QStringList header = lines.takeFirst().split(',');
  for (const QString &line : lines) {
    QStringList fields = line.split(',');
    QHash<QString, QString> row;
    for (qsizetype i = 0; i < header.size(); ++i)
      row.insert(header[i], i < fields.size() ? fields[i] : QString("(missing)"));
    if (fields.size() != header.size())
      row.insert("(fields)", QString::number(fields.size()));
    rows.append(row);
  }
  return rows;
}
