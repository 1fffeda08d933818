// Evaluates a units expression and reads a beamline with the installed library.
#include <nexil/BeamlineCoordinates.h>
#include <nexil/Units.h>

#include <cstdio>

int main(int argc, char **argv) {
  if (argc != 2)
    return 2;
  double length = Nexil::Units::value("1.5m + 20cm", "mm");
  Nexil::BeamlineCoordinates::initFromFile(argv[1]);
  Nexil::Point end =
      Nexil::BeamlineCoordinates::getTransform(7.0).convert("mm") * Nexil::Point(0, 0, 0);
  printf("%.6g mm; s = 7 m at x = %.3f mm, z = %.3f mm\n", length, end.x, end.z);
  return 0;
}
