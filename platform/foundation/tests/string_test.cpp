#include <gtest/gtest.h>

#include "zel/String.h"

TEST(String, placeholder) { EXPECT_EQ(zel::String("a"), "a"); }
