// The music pack's tracks: short phrases played by a small synthesiser (plucked and bowed voices
// made of a few harmonics, a kick and a snare of noise), written as 16-bit mono WAV files at
// 11025 samples a second so that they stay small.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "artmath.h"
#include "mediafiles.h"
#include "sessionart.h"

namespace sampleart
{
namespace
{
constexpr int kRate = 11025;

struct Note_t
{
	int pitch;			// MIDI note number; 69 is A at 440 Hz
	double start, length; // in steps
};

enum EVoice
{
	VOICE_PLUCK, // bright, dies away
	VOICE_BOW,	 // soft, held
	VOICE_BRASS, // strong harmonics, held
};

struct Part_t
{
	EVoice voice;
	double gain;
	std::vector<Note_t> notes;
};

struct Track_t
{
	const char *pszName;
	double stepSeconds;
	int steps;
	std::vector<Part_t> parts;
	std::vector<int> kicks, snares; // steps on which the drums sound
};

double Frequency(int pitch) { return 440.0 * std::pow(2.0, (pitch - 69) / 12.0); }

// One note of a voice, `t` seconds after its start, `held` seconds long.
double Voice(EVoice voice, double frequency, double t, double held)
{
	const double release = 0.08;
	if (t < 0.0 || t > held + release)
		return 0.0;
	const double attack = voice == VOICE_PLUCK ? 0.005 : 0.04;
	double envelope = std::min(1.0, t / attack);
	if (voice == VOICE_PLUCK)
		envelope *= std::exp(-4.0 * t);
	if (t > held)
		envelope *= 1.0 - (t - held) / release;
	static const double kHarmonics[3][4] = { { 1.0, 0.5, 0.25, 0.12 }, { 1.0, 0.2, 0.08, 0.0 }, { 1.0, 0.7, 0.5, 0.3 } };
	double value = 0.0;
	for (int h = 0; h < 4; ++h)
	{
		// Harmonics above the Nyquist frequency would fold back; leave them out.
		if (frequency * (h + 1) < kRate * 0.45)
			value += kHarmonics[voice][h] * std::sin(2.0 * kPi * frequency * (h + 1) * t);
	}
	return envelope * value;
}

double Kick(double t)
{
	if (t < 0.0 || t > 0.3)
		return 0.0;
	// A sine that falls from 110 to 45 Hz: the phase is the integral of the frequency.
	const double phase = 2.0 * kPi * (45.0 * t + (110.0 - 45.0) / 18.0 * (1.0 - std::exp(-18.0 * t)));
	return std::sin(phase) * std::exp(-9.0 * t);
}

std::vector<int16_t> Render(const Track_t &track)
{
	const double seconds = track.steps * track.stepSeconds + 0.25;
	const size_t count = (size_t)(seconds * kRate);
	std::vector<double> mix(count, 0.0);
	for (const Part_t &part : track.parts)
	{
		for (const Note_t &note : part.notes)
		{
			const double start = note.start * track.stepSeconds, held = note.length * track.stepSeconds;
			const size_t first = (size_t)(start * kRate), last = std::min(count, (size_t)((start + held + 0.1) * kRate) + 1);
			const double f = Frequency(note.pitch);
			for (size_t i = first; i < last; ++i)
				mix[i] += part.gain * Voice(part.voice, f, i / double(kRate) - start, held);
		}
	}
	for (int step : track.kicks)
	{
		const size_t first = (size_t)(step * track.stepSeconds * kRate);
		for (size_t i = first; i < std::min(count, first + (size_t)(0.3 * kRate)); ++i)
			mix[i] += 0.5 * Kick((i - first) / double(kRate));
	}
	uint32_t noise = 0x2545f491u;
	for (int step : track.snares)
	{
		const size_t first = (size_t)(step * track.stepSeconds * kRate);
		for (size_t i = first; i < std::min(count, first + (size_t)(0.2 * kRate)); ++i)
		{
			noise = noise * 1664525u + 1013904223u;
			const double white = ((noise >> 8) & 0xffff) / 32768.0 - 1.0;
			mix[i] += 0.22 * white * std::exp(-18.0 * (i - first) / double(kRate));
		}
	}
	std::vector<int16_t> samples(count);
	for (size_t i = 0; i < count; ++i)
	{
		// A soft clip keeps the loudest chords from cracking; the last fifth of a second fades.
		const double fade = std::min(1.0, (count - i) / (0.2 * kRate));
		samples[i] = (int16_t)std::lround(32767.0 * 0.9 * std::tanh(mix[i] * 0.6) * fade);
	}
	return samples;
}

// Notes one after another, each `length` steps, from step `start`.
std::vector<Note_t> Line(std::initializer_list<int> pitches, double start, double length)
{
	std::vector<Note_t> notes;
	for (int pitch : pitches)
	{
		notes.push_back({ pitch, start, length });
		start += length;
	}
	return notes;
}
std::vector<Note_t> Chord(std::initializer_list<int> pitches, double start, double length)
{
	std::vector<Note_t> notes;
	for (int pitch : pitches)
		notes.push_back({ pitch, start, length });
	return notes;
}
std::vector<Note_t> Join(std::initializer_list<std::vector<Note_t>> parts)
{
	std::vector<Note_t> notes;
	for (const std::vector<Note_t> &p : parts)
		notes.insert(notes.end(), p.begin(), p.end());
	return notes;
}

std::vector<Track_t> Tracks()
{
	return {
		// The main menu: a calm arpeggio in D minor over held chords.
		{ "main_menu", 0.19, 16,
			{ { VOICE_PLUCK, 0.35, Line({ 62, 65, 69, 74, 72, 69, 65, 69, 60, 64, 67, 72, 70, 67, 64, 62 }, 0, 1) },
				{ VOICE_BOW, 0.22, Join({ Chord({ 50, 57 }, 0, 8), Chord({ 48, 55 }, 8, 8) }) } },
			{}, {} },
		// Hero pick: a rising, brighter figure in G major.
		{ "hero_pick", 0.16, 16,
			{ { VOICE_PLUCK, 0.35, Line({ 67, 71, 74, 79, 69, 72, 76, 81, 71, 74, 78, 83, 79, 74, 71, 79 }, 0, 1) },
				{ VOICE_BOW, 0.2, Join({ Chord({ 43, 55 }, 0, 4), Chord({ 45, 57 }, 4, 4), Chord({ 47, 59 }, 8, 4), Chord({ 43, 55 }, 12, 4) }) } },
			{}, {} },
		// Battle: a driving bass and brass in A minor, with drums.
		{ "battle", 0.14, 16,
			{ { VOICE_PLUCK, 0.4, Line({ 45, 45, 57, 45, 48, 45, 55, 45, 43, 43, 55, 43, 44, 44, 56, 44 }, 0, 1) },
				{ VOICE_BRASS, 0.22, Join({ Line({ 69, 72, 76 }, 0, 2), Chord({ 74, 77 }, 6, 2), Line({ 67, 71, 74 }, 8, 2), Chord({ 76, 80 }, 14, 2) }) } },
			{ 0, 4, 8, 10, 12 }, { 2, 6, 14, 15 } },
		// Victory: a fanfare up the C major triad to a held chord.
		{ "victory", 0.15, 16,
			{ { VOICE_BRASS, 0.28, Join({ Line({ 60, 64, 67 }, 0, 1), Line({ 72 }, 3, 3), Line({ 67, 72 }, 6, 1), Chord({ 64, 67, 72, 76 }, 8, 8) }) },
				{ VOICE_BOW, 0.22, Join({ Chord({ 48 }, 0, 8), Chord({ 36, 48 }, 8, 8) }) } },
			{ 0, 8 }, { 6, 7 } },
	};
}
} // namespace

void MakeSessionMusic(CArtOutput &out)
{
	for (const Track_t &track : Tracks())
	{
		const std::string bytes = EncodeWav16(Render(track), kRate);
		out.WriteBytes(std::string("art/music/") + track.pszName + ".wav", bytes.data(), bytes.size());
	}
}
} // namespace sampleart
