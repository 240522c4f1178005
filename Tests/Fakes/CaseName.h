#pragma once

#include <gtest/gtest.h>

#include <string>

/// Names each instance of a parameterized test after the `name` of its case.
template <typename Case>
std::string caseName(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}
