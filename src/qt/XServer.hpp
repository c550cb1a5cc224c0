#pragma once

// What the toolkit does not report about its X display. Without one every answer is false.

namespace quorbin {

// A tray of the older kind, which embeds the icon's window, runs on the toolkit's screen.
bool EmbeddingTrayRuns();

// True if the event, as the toolkit passes it to its native filters, is a message to all clients; a
// tray that has just started sends one.
bool IsAnnouncement(const void* xcbEvent);

}  // namespace quorbin
