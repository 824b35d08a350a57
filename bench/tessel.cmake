# The benchmarks of both chip families; each tessel/<topic>.cmake declares those of one topic.
foreach(topic IN ITEMS events configuration registers validation model)
  include(tessel/${topic}.cmake OPTIONAL)
endforeach()
