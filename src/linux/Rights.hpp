#pragma once

namespace quorbin {

// Gives up what the program does not need once it listens: all capabilities, where it was started
// with any, and core dumps, which would hold what peers have sent. A viewer that root starts has
// its capabilities again; a viewer may turn core dumps on again.
void GiveUpRights();

}  // namespace quorbin
