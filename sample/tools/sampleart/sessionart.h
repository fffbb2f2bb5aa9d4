// The sources of the sample sessions (sample/sessions), as an author would bring them to the
// import, under art/<kind>/ of the output folder: one set for every kind of submission that the
// sample game offers. Each is made for its template: meshes within its budgets on the skeleton
// its animations and its hero use, textures of the sizes it asks, images of its exact sizes and
// file kinds, sounds.
#pragma once

#include "artoutput.h"

namespace sampleart
{
// All of it.
void MakeSessionArt(CArtOutput &out);

// Models with their textures: the courier, the ward, wearables of three heroes, Bramble's
// lantern (a custom wearable) and the thorn of Thorn Volley (an ability effect).
void MakeSessionModels(CArtOutput &out);
// Pictures: the loading screen, the marketing images, emoticon strips, cursors and ability icons.
void MakeSessionImages(CArtOutput &out);
// The music pack's tracks.
void MakeSessionMusic(CArtOutput &out);
} // namespace sampleart
