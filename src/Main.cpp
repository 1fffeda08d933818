//===- Main.cpp - The application object's class-wide state ---------------===//

#include "Main.h"

namespace Nexil {

SimFile *Main::currentSimulation = nullptr;

} // namespace Nexil
