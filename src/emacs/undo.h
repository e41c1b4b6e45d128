// undo.h: what the line was before. Steps are taken back one by one, the newest first, back to the
// empty line; the oldest are forgotten when they are too many.
#pragma once

namespace emacs {

// Chooses, once a run, whether changes are followed.
void undo_begin(bool extended);
// Forgets all steps and follows the changes of the line that text_begin has begun.
void undo_line();

// A character is about to be put in. Characters typed one behind the other are one step, up to 20
// of them, and so are all of a paste; `paste` is its number, 0 for a key.
void undo_typing(int paste);
// A command is about to be carried out: what it changes, if anything, is a step.
void undo_command();

// Takes the newest step back: line, cursor and place in the history are as they were before it.
// False when there is none.
bool undo_step();

}  // namespace emacs
