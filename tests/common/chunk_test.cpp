// The collectors' buffer and the pool templates around it.
#include "common/chunk.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "common/resource_pool.h"

namespace analysis::rokt::common::memory {
namespace {

TEST(Chunk, InitMakesAZeroedBufferOfTheSize) {
    Chunk chunk(16);

    ASSERT_TRUE(chunk.Init());

    ASSERT_NE(chunk.GetBuffer(), nullptr);
    EXPECT_EQ(std::string(static_cast<char*>(chunk.GetBuffer()), 16), std::string(16, '\0'));
    EXPECT_EQ(chunk.GetBufferSize(), 16U);
    EXPECT_EQ(chunk.GetUsedSize(), 0U);
    EXPECT_EQ(chunk.GetFreeSize(), 16U);
}

TEST(Chunk, ConstructorMakesNoBuffer) {
    const Chunk chunk(16);

    EXPECT_EQ(chunk.GetBuffer(), nullptr);
    EXPECT_EQ(chunk.GetBufferSize(), 16U);
}

TEST(Chunk, SizeZeroHasNoBuffer) {
    Chunk chunk(0);

    EXPECT_TRUE(chunk.Init());

    EXPECT_EQ(chunk.GetBuffer(), nullptr);
    EXPECT_EQ(chunk.GetFreeSize(), 0U);
}

TEST(Chunk, SizeThatCannotBeAllocatedFails) {
    Chunk chunk(UINT64_MAX / 4);

    EXPECT_FALSE(chunk.Init());

    EXPECT_EQ(chunk.GetBuffer(), nullptr);
}

TEST(Chunk, UsedSizeCutsTheFreeSize) {
    Chunk chunk(16);
    ASSERT_TRUE(chunk.Init());

    chunk.SetUsedSize(10);

    EXPECT_EQ(chunk.GetUsedSize(), 10U);
    EXPECT_EQ(chunk.GetFreeSize(), 6U);
}

TEST(Chunk, ClearZeroesBufferAndFillMark) {
    Chunk chunk(4);
    ASSERT_TRUE(chunk.Init());
    std::memset(chunk.GetBuffer(), 'x', 4);
    chunk.SetUsedSize(4);

    chunk.Clear();

    EXPECT_EQ(chunk.GetUsedSize(), 0U);
    EXPECT_EQ(std::string(static_cast<char*>(chunk.GetBuffer()), 4), std::string(4, '\0'));
}

TEST(Chunk, ClearWithoutABufferResetsTheFillMark) {
    Chunk chunk(4);
    chunk.SetUsedSize(3);

    chunk.Clear();

    EXPECT_EQ(chunk.GetUsedSize(), 0U);
}

TEST(Chunk, UninitTakesTheSizeForGood) {
    Chunk chunk(16);
    ASSERT_TRUE(chunk.Init());

    chunk.Uninit();

    EXPECT_EQ(chunk.GetBufferSize(), 0U);
    EXPECT_EQ(chunk.GetBuffer(), nullptr);
    EXPECT_TRUE(chunk.Init());
    EXPECT_EQ(chunk.GetBuffer(), nullptr);
}

// Shows the parts of a pool that only a derived class sees.
struct OpenPool : ResourcePool<Chunk, unsigned long> {
    OpenPool(uint64_t size, unsigned long chunkSize) : ResourcePool(size, chunkSize) {}
    using PoolBase::param;
    using PoolBase::poolSize;
    using PoolBase::resources;
    using ResourcePool::freeResources;
};

TEST(ResourcePool, KeepsItsSizeAndParameter) {
    const OpenPool pool(3, 4096);

    EXPECT_EQ(pool.poolSize, 3U);
    EXPECT_EQ(pool.param, 4096U);
    EXPECT_TRUE(pool.resources.empty());
}

TEST(ResourcePool, DestructorLetsGoOfAllObjects) {
    const auto chunk = std::make_shared<Chunk>(1);
    auto pool = std::make_unique<OpenPool>(1, 1UL);
    pool->resources.push_back(chunk);
    pool->freeResources.push(chunk);
    ASSERT_EQ(chunk.use_count(), 3);

    pool.reset();

    EXPECT_EQ(chunk.use_count(), 1);
}

TEST(ChunkPool, IsAPoolOfChunks) {
    const ChunkPool pool(2, 64);

    EXPECT_NE((dynamic_cast<const PoolBase<Chunk, unsigned long>*>(&pool)), nullptr);
}

}  // namespace
}  // namespace analysis::rokt::common::memory
