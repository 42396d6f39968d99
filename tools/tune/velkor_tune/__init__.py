"""Velkor's gene tuner: fits, SPSA and PBIL over the engine's -pbil= string, the match that verifies a string, and a live page of each campaign."""
