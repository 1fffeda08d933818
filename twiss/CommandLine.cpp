//===- CommandLine.cpp - The twiss command line and its descriptor ----------===//
//
// A host application lists its analysis tools by running each with --summary and
// reading the four descriptor lines. Any other run goes through the analysis phases
// in a fixed order.
//
//===----------------------------------------------------------------------------===//

#include "CommandLine.h"

#include "Analysis.h"
#include "BeamlineCoordinates.h"
#include "Console.h"
#include "RegExp.h"

#include <QStringList>
#include <cstdio>
#include <cstring>

namespace {

void printDescriptor() {
  printf("name=twiss\n");
  printf("inputFiles=AllTracks.txt,sampleS.txt\n");
  printf("cutVars=x,y,z,Px,Py,Pz,t,PDGid\n");
  printf("description=Computes Twiss variables at values of s.\n");
}

} // namespace

int runTwiss(int argc, char **argv) {
  // Only a first argument of exactly "-d" is the debug option.
  if (argc > 1 && strcmp(argv[1], "-d") == 0) {
    Debug = true;
    ++argv;
    --argc;
  }
  QStringList args;
  for (int i = 0; i < argc; ++i)
    args << QString(argv[i]);

  if (args.size() > 1 && args[1] == "--summary") {
    printDescriptor();
    return 0;
  }

  // No option sets this yet; it is kept for options that may report malformed input.
  bool syntaxError = false;
  for (const QString &arg : args) {
    if (Nexil::RE.match("^cut=(.*)$", arg)) {
      printf("UNIMPLEMENTED: cut in twiss\n");
      fflush(stdout);
    }
  }
  if (syntaxError) {
    printf("twiss: syntax error in arguments\n");
    return 1;
  }

  // Messages thrown by the library are deliberately not caught: they end the process.
  Nexil::BeamlineCoordinates::initFromFile("beamlineCoordinates.txt");
  if (Debug) {
    Nexil::Console.printf("Be3amline Coordinates:\n");
    Nexil::BeamlineCoordinates::write("-");
    Nexil::Console.printf("\n");
  }
  if (!readPlanes() || !runTrackLoop() || !writeReport())
    return 1;
  return 0;
}
