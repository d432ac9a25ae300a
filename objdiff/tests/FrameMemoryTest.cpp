// The frame memories: what the image pipeline gets back from each call.
#include "objdiff/LocalObjDiffMemory.h"
#include "objdiff/MemoryBlock.h"
#include "objdiff/RemoteObjDiffMemory.h"

#include <gtest/gtest.h>

TEST(FrameMemory, LocalKeepsEveryFrameUntilDestroyed)
{
    LocalObjDiffMemory memory;
    char* first = memory.allocate(100, 1);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(memory.allocate(100, 1), nullptr); // a frame is allocated once
    char* second = memory.allocate(50, 2);
    ASSERT_NE(second, nullptr);

    // the final length only ever shrinks; release keeps the bytes
    EXPECT_EQ(memory.chunk(first, 0, 80, 1), first);
    EXPECT_EQ(memory.chunk(first, 0, 90, 1), first);
    memory.release(first, 100, 1);
    first[79] = 'x';
    EXPECT_EQ(memory.getFrames().at(1)->getLength(), 80u);
    EXPECT_EQ(memory.getFrames().at(2)->getLength(), 50u);

    // a length for a frame never allocated leaves an empty entry
    EXPECT_EQ(memory.chunk(nullptr, 0, 10, 7), nullptr);
    ASSERT_EQ(memory.getFrames().size(), 3u);
    EXPECT_EQ(memory.getFrames().at(7)->getData(), nullptr);
    EXPECT_EQ(memory.getFrames().at(7)->getLength(), 0u);

    MemoryBlock block;
    EXPECT_EQ(block.chunk(10), nullptr);
    ASSERT_NE(block.allocate(0), nullptr);
    EXPECT_EQ(block.allocate(4), nullptr);
    EXPECT_EQ(block.getLength(), 0u);
}

TEST(FrameMemory, RemoteReusesOneBuffer)
{
    RemoteObjDiffMemory memory;
    char* buffer = memory.allocate(100, 1);
    ASSERT_NE(buffer, nullptr);
    EXPECT_TRUE(memory.isInUse());

    // lent: a separate array, freed by its own release
    char* other = memory.allocate(10, 2);
    ASSERT_NE(other, nullptr);
    EXPECT_NE(other, buffer);
    memory.release(other, 10, 2);
    EXPECT_TRUE(memory.isInUse());
    EXPECT_EQ(memory.chunk(buffer, 0, 3, 1), buffer);

    // given back: lent again for a request that fits, replaced for a larger one
    memory.release(buffer, 100, 1);
    EXPECT_FALSE(memory.isInUse());
    EXPECT_EQ(memory.allocate(60, 3), buffer);
    memory.release(buffer, 60, 3);
    char* larger = memory.allocate(1000, 4);
    ASSERT_NE(larger, nullptr);
    EXPECT_EQ(memory.getCapacity(), 1000u);
    larger[999] = 'x';
    memory.release(larger, 1000, 4);
    EXPECT_FALSE(memory.isInUse());
}
