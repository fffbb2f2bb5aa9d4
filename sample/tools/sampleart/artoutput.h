// Where the generators' files go: a folder laid out like sample/, and the report of what was
// written there (every file, what each FBX file holds, and what went wrong).
#pragma once

#include <QImage>

#include <string>

#include "fbxwriter.h"
#include "sampleart.h"

namespace sampleart
{
class CArtOutput
{
public:
	CArtOutput(const std::string &outDir, SampleArtReport_t &report) : m_OutDir(outDir), m_Report(report) {}

	// Each takes a path relative to the output folder, creates its folders, writes the file
	// atomically and records it; false (with an error in the report) when that fails.
	bool WriteBytes(const std::string &rel, const void *data, size_t size);
	bool WriteText(const std::string &rel, const std::string &text) { return WriteBytes(rel, text.data(), text.size()); }
	bool WritePng(const std::string &rel, const QImage &image);
	// The scene's points as the file keeps them (to two decimals) are checked for closed,
	// consistently wound shells first; a finding is an error of the report.
	void WriteFbx(const std::string &rel, const FbxScene_t &scene);

	void Error(const std::string &text) { m_Report.m_Errors.push_back(text); }
	SampleArtReport_t &Report() { return m_Report; }
	// What WriteFbx recorded of a file, or null.
	const GeneratedFbx_t *FindFbx(const std::string &rel) const;

private:
	std::string m_OutDir;
	SampleArtReport_t &m_Report;
};
} // namespace sampleart
