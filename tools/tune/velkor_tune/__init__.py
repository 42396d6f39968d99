"""Velkor's gene tuner: PBIL over the engine's 84-bit -pbil= string."""
