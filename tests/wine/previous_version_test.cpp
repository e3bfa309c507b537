// Tests to come.
