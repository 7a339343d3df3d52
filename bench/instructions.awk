# Reads callgrind's dumps, one an operation; prints for each the instructions of a call and the operation's name.
#
# Only those that the library's own code executes are counted: the C library has another memset for each kind of
# processor and the tracing runtime has threads of its own, so that a sum over all objects would depend on the machine.
sub(/^desc: Trigger: Client Request: /, "") { split($0, trigger, "\t") }
/^ob=/ { in_library = /\/libzel-core-term\.so/ }
/^calls=/ { inclusive = 1; next } # the next line tells what was executed in the called function
/^[0-9]/ { if (in_library && !inclusive) sum[trigger[1]] += $2; inclusive = 0 }
trigger[2] > 0 { calls_of[trigger[1]] = trigger[2] }
END { for (name in calls_of) if (name in sum) printf "%7d  %s\n", sum[name] / calls_of[name], name }
