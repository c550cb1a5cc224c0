#pragma once

namespace quorbin {

// Gives up what the program does not need once it listens: all capabilities, where it was started
// with any, and core dumps, which would hold what peers have sent. A viewer that root starts has
// its capabilities again, and viewers have the core limit from before (Processes).
void GiveUpRights();

}  // namespace quorbin
