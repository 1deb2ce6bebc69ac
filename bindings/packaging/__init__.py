"""Makes the packages of the bindings, with the standard library only."""
