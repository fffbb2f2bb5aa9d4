// Whole-text number parsing: what the command lines, the material files and the settings files
// take as a number, and what they refuse.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>

#include "core/strtools.h"

TEST(ParseNumbers, IntegersAreWholeTextsWithinTheirRange)
{
	int64 value = 7;
	EXPECT_TRUE(V_ParseInt("42", 0, 100, value));
	EXPECT_EQ(42, value);
	EXPECT_TRUE(V_ParseInt(" \t-3 ", -10, 10, value));
	EXPECT_EQ(-3, value);
	EXPECT_TRUE(V_ParseInt("+5", 0, 10, value));
	EXPECT_EQ(5, value);
	EXPECT_TRUE(V_ParseInt("9223372036854775807", 0, INT64_MAX, value));
	EXPECT_EQ(INT64_MAX, value);
	value = 7;
	for (const char *bad : { "", "  ", "12x", "x12", "1 2", "1.5", "+", "-", "+-3", "0x10", "101", "-11" })
	{
		EXPECT_FALSE(V_ParseInt(bad, -10, 100, value)) << '"' << bad << '"';
		EXPECT_EQ(7, value) << "refused \"" << bad << "\" but changed the value";
	}
	EXPECT_FALSE(V_ParseInt("99999999999999999999", INT64_MIN, INT64_MAX, value));
}

TEST(ParseNumbers, DoublesAreFiniteWholeTextsWithinTheirMagnitudeWhateverTheLocale)
{
	double value = 7.0;
	EXPECT_TRUE(V_ParseDouble("0.25", 1.0, value));
	EXPECT_EQ(0.25, value);
	EXPECT_TRUE(V_ParseDouble(" -1e3\t", 1e4, value));
	EXPECT_EQ(-1000.0, value);
	EXPECT_TRUE(V_ParseDouble("3", 10.0, value));
	EXPECT_EQ(3.0, value);
	value = 7.0;
	for (const char *bad : { "", "1,5", "1.5f", "nan", "inf", "-inf", "1e400", "2e4", ".", "--1", "+-1" })
	{
		EXPECT_FALSE(V_ParseDouble(bad, 1e4, value)) << '"' << bad << '"';
		EXPECT_EQ(7.0, value) << "refused \"" << bad << "\" but changed the value";
	}
	// A locale with a decimal comma does not change what a file means.
	if (setlocale(LC_NUMERIC, "de_DE.UTF-8"))
	{
		EXPECT_TRUE(V_ParseDouble("0.5", 1.0, value));
		EXPECT_EQ(0.5, value);
		setlocale(LC_NUMERIC, "C");
	}
}
