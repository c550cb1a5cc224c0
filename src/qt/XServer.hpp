#pragma once

// What the toolkit doesn't tell about its X display. Without one the answer is no.

namespace quorbin {

// The connection to the X server has ended.
bool DisplayLost();

// A tray of the older kind, which embeds the icon's window, runs on the toolkit's screen.
bool EmbeddingTrayRuns();

// The event, as the toolkit hands it to its native filters, tells all clients something; a tray
// that has just started does.
bool IsAnnouncement(const void* xcbEvent);

}  // namespace quorbin
