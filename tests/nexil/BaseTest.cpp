//===- BaseTest.cpp - Objects handed through text as printed pointers -----===//

#include "Base.h"
#include "Geometry.h"

#include <QString>
#include <cstring>
#include <gtest/gtest.h>

namespace {

QString printed(Base *object) {
  return QString::asprintf("%p", static_cast<void *>(object));
}

/// The message Base::get throws for the text, or "" when it returns.
QString thrownBy(const QString &text) {
  try {
    Base::get(text);
  } catch (const QString &message) {
    return message;
  }
  return QString();
}

TEST(BaseTest, tagIsBaseZeroFilledToEightBytes) {
  Base b;
  EXPECT_TRUE(b.checkBase());
  EXPECT_EQ(memcmp(b.tag, "Base\0\0\0\0", 8), 0);
}

TEST(BaseTest, copiesCarryTheTag) {
  Base b;
  Base c(b);
  EXPECT_TRUE(c.checkBase());
  Base d;
  d.tag[0] = 'X';
  EXPECT_FALSE(d.checkBase());
  d = b;
  EXPECT_TRUE(d.checkBase());
  // An overwritten tag is copied as it is.
  b.tag[3] = 'X';
  Base e(b);
  EXPECT_FALSE(e.checkBase());
}

TEST(BaseTest, tagIsReadAsATextUpToItsFirstZero) {
  Base b;
  b.tag[5] = 'Z'; // after the terminating zero: still "Base"
  EXPECT_TRUE(b.checkBase());
  b.tag[4] = 's'; // "Bases" is not "Base"
  EXPECT_FALSE(b.checkBase());
}

TEST(BaseTest, getReturnsTheLiveObjectWhoseAddressIsPrinted) {
  Base b;
  EXPECT_EQ(Base::get(printed(&b)), &b);
  Nexil::Transform t = Nexil::Transform::translate(1, 2, 3);
  EXPECT_EQ(Base::get(printed(&t)), static_cast<Base *>(&t));
}

TEST(BaseTest, nullOrNoNumberThrowsTheFirstText) {
  const QString first = "INTERNAL ERROR: Invalid pointer in Base::get A";
  EXPECT_EQ(thrownBy("0x0"), first);
  EXPECT_EQ(thrownBy("(nil)"), first);
  EXPECT_EQ(thrownBy("hello"), first);
  EXPECT_EQ(thrownBy(""), first);
}

TEST(BaseTest, anOverwrittenTagThrowsTheSecondText) {
  Nexil::Transform t;
  t.tag[0] = 'X';
  EXPECT_EQ(thrownBy(printed(&t)), "INTERNAL ERROR: Invalid pointer in Base::get B");
}

} // namespace
