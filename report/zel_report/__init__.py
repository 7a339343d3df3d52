"""Turns a recorded trace of libzel-core-term into a report: what failed, what is left, what to do."""
