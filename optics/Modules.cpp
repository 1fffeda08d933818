//===- Modules.cpp - The parts of the tool loaded when they are asked for ---===//

#include "Modules.h"

#include "Failure.h"

#include <QFile>
#include <QFileInfo>
#include <dlfcn.h>

namespace {

/// HDF5 files begin with these bytes.
const char Hdf5Signature[] = "\x89HDF\r\n\x1a\n";

/// The module in the file `name` of the modules' folder, whose path from the tool's own
/// folder the build gives, through its function `entry`; `what` says what cannot be done
/// without it.
template <typename Module>
const Module &load(const char *name, const char *entry, const QString &what) {
  const QString tool = QFileInfo(QFile::symLinkTarget("/proc/self/exe")).absolutePath();
  const QString path = tool + "/" OPTICS_MODULE_DIR "/" + name;
  void *module = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
  auto found = module ? reinterpret_cast<const Module *(*)()>(dlsym(module, entry)) : nullptr;
  if (!found)
    throw Failure{what + " (" + QString::fromLocal8Bit(dlerror()) + ")", 1};
  return *found();
}

} // namespace

const PictureModule &pictureModule() {
  static const PictureModule &module =
      load<PictureModule>("twiss-optics-pictures.so", "twissOpticsPictureModule",
                          "pictures cannot be drawn: their module cannot be loaded");
  return module;
}

const ParticleModule &particleModule() {
  static const ParticleModule &module = load<ParticleModule>(
      "twiss-optics-particles.so", "twissOpticsParticleModule",
      "particle files cannot be written or read: their module cannot be loaded");
  return module;
}

bool isHdf5File(const QString &path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) &&
         file.read(sizeof Hdf5Signature - 1) == QByteArray(Hdf5Signature, sizeof Hdf5Signature - 1);
}
