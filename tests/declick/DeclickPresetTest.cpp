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

// Where the engines run alone (streams, plug-ins, --no-refill) nothing follows them;
// the default preset then chains a clicks pass and a fine crackle pass, as its one
// pass leaves fine crackle to the search after it.
TEST(DeclickPreset, EveryPresetHasSettingsForItsEnginesAlone)
{
    for (const DeclickPreset& preset : declickPresets()) {
        SCOPED_TRACE(preset.name);
        const DeclickSettings& alone = preset.enginesAlone;
        EXPECT_FALSE(alone.refillClicks || alone.findImpulses || alone.fillFineCrackle);
        EXPECT_EQ(alone.engine, preset.settings.engine);
        EXPECT_EQ(alone.block, preset.settings.block);
    }
    const DeclickPreset& automatic = *findDeclickPreset("auto");
    EXPECT_EQ(automatic.settings.passCount, 1);
    EXPECT_TRUE(automatic.settings.refillClicks && automatic.settings.findImpulses && automatic.settings.fillFineCrackle);
    EXPECT_EQ(automatic.enginesAlone.passCount, 2);
    EXPECT_LT(automatic.enginesAlone.passes[1].floor.value, automatic.enginesAlone.passes[0].floor.value);
}
