//===- Modules.h - The parts of the tool loaded when they are asked for -*- C++ -*-===//
//
// The pictures (Qt's painting and its fonts) and the particle files (HDF5) need large
// libraries: loaded with the tool, they and the libraries they pull in would take 13 MB
// of every run's memory before its first plane, and most runs draw nothing and write no
// particle file. Each lives in a module of its own, beside the tool, loaded the first
// time the run needs it.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_MODULES_H
#define OPTICS_MODULES_H

#include "EnvelopePlot.h"
#include "KeptCrossings.h"
#include "MomentsFile.h"
#include "ParticleFile.h"
#include "PhaseSpaceView.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <memory>
#include <vector>

/// What the tool draws.
struct PictureModule {
  BeamlineMarks (*beamlineMarks)();
  QByteArray (*envelopePlot)(const QString &path, const QList<OpticsRow> &rows,
                             const QString &title, const BeamlineMarks &marks);
  QByteArray (*phaseSpacePlot)(const QString &path, const PhaseSpaceView &view,
                               const QString &title);
};

/// What the tool writes to and reads from particle files.
struct ParticleModule {
  std::unique_ptr<ParticleFile> (*create)(const QString &path, const QList<double> &planeS,
                                          const QList<int> &written, int compression);
  MomentsPart (*readRun)(const QString &path);
  void (*addCrossings)(const QString &path, KeptCrossings &kept, int jobsBefore);
};

/// The modules, loaded on first use; each throws a Failure (status 1) when its module
/// cannot be loaded.
const PictureModule &pictureModule();
const ParticleModule &particleModule();

/// Whether a file begins as an HDF5 file does: a particle file, for a merge.
bool isHdf5File(const QString &path);

#endif // OPTICS_MODULES_H
