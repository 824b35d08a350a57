// Emulated devices: what makes the kit usable with no hardware at hand.
