#pragma once

#include <gtest/gtest.h>

#include <string>

/// Names the instances of a table of tests after the `name` of each case.
template <typename Case>
std::string caseName(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}
