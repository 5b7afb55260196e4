set(damaged_copies 100000)
