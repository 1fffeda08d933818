//===- PictureModule.cpp - The entry of the pictures' module ---------------===//

#include "EnvelopePlot.h"
#include "Modules.h"
#include "PhaseSpacePlot.h"

extern "C" const PictureModule *twissOpticsPictureModule() {
  static const PictureModule module{beamlineMarks, envelopePlot, phaseSpacePlot};
  return &module;
}
