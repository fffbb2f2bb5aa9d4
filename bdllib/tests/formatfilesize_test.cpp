// FormatFileSize: bytes below 1024, then single-precision steps of 1024 with two decimals.
#include <gtest/gtest.h>

#include "bdllib/formatfilesize.h"

TEST(FormatFileSize, Bytes)
{
	EXPECT_EQ(FormatFileSize(0), "0 Bytes");
	EXPECT_EQ(FormatFileSize(1), "1 Bytes");
	EXPECT_EQ(FormatFileSize(1023), "1023 Bytes");
	EXPECT_EQ(FormatFileSize(-5), "-5 Bytes");
}

TEST(FormatFileSize, Units)
{
	EXPECT_EQ(FormatFileSize(1024), "1.00 KB");
	EXPECT_EQ(FormatFileSize(1536), "1.50 KB");
	EXPECT_EQ(FormatFileSize(10 * 1024 + 10), "10.01 KB");
	EXPECT_EQ(FormatFileSize(1048575), "1024.00 KB"); // 1023.999 KB shows rounded, still in KB
	EXPECT_EQ(FormatFileSize(1048576), "1.00 MB");
	EXPECT_EQ(FormatFileSize(5 * 1048576 + 524288), "5.50 MB");
	EXPECT_EQ(FormatFileSize(1073741824), "1.00 GB");
	EXPECT_EQ(FormatFileSize(1099511627776ll * 3), "3.00 TB");
}

TEST(FormatFileSize, SinglePrecisionAndTheLastUnit)
{
	// 2^30 - 1 is not a float: it rounds up to 2^30 and shows as a whole gigabyte.
	EXPECT_EQ(FormatFileSize(1073741823), "1.00 GB");
	// Terabytes are the last unit: bigger sizes stay in it.
	EXPECT_EQ(FormatFileSize(1ll << 50), "1024.00 TB");
	EXPECT_EQ(FormatFileSize(1ll << 60), "1048576.00 TB");
}
