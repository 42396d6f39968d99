// The board and its move machinery: one position with its state stack,
// keys and FEN, make and unmake, geometry and magic attack tables, attack
// maps, the legal move generator, perft, and the text forms of moves and
// positions.
#pragma once

#include "engine/clock.h"
#include "engine/geometry.h"
#include "engine/input.h"
#include "engine/magics.h"
#include "engine/movegen.h"
#include "engine/notation.h"
#include "engine/position.h"
#include "engine/text.h"
#include "engine/types.h"
