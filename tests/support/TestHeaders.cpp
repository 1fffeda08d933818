//===- TestHeaders.cpp - The headers every test compiles -----------------===//
//
// The headers that nearly every test includes, GoogleTest's and Qt's, compiled once for
// this target and reused by every test: most of a test's compile time was theirs.
//
//===----------------------------------------------------------------------------===//
