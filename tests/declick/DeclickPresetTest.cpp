#include "declick/DeclickPreset.h"

#include <gtest/gtest.h>

TEST(DeclickPreset, EveryPresetIsFoundByNameAndTheDefaultIsOne)
{
    for (const DeclickPreset& preset : declickPresets()) EXPECT_EQ(findDeclickPreset(preset.name), &preset);
    EXPECT_EQ(findDeclickPreset(defaultDeclickPreset().name), &defaultDeclickPreset());
    EXPECT_EQ(findDeclickPreset("loud"), nullptr);
    for (const char* name : {"clicks", "crackle", "gentle"}) EXPECT_NE(findDeclickPreset(name), nullptr) << name;
}

TEST(DeclickPreset, ARelativeFloorFollowsTheLevelAndAnAbsoluteOneDoesNot)
{
    const SpectralFloorRule relative{true, 1e-3};
    EXPECT_FLOAT_EQ(relative.floorFor(0.25), 2.5e-4f);
    EXPECT_FLOAT_EQ(relative.floorFor(0.0025), 2.5e-6f);
    const SpectralFloorRule absolute{false, 1e-7};
    EXPECT_EQ(absolute.floorFor(0.25), 1e-7f);
    EXPECT_EQ(absolute.floorFor(0.0025), 1e-7f);
}
