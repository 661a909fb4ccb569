# Installs the build tree into a fresh prefix, builds the consumer project against it and
# runs it on installed sample files. -DBUILD=<build tree> -DSOURCE=<this directory>
# -DWORK=<scratch directory>
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
foreach(generic libmatrix.so libgdb.so libgeometry.so libhxutil.so)
  if(EXISTS ${WORK}/prefix/lib/${generic})
    message(FATAL_ERROR "${generic} was installed in lib/ itself")
  endif()
endforeach()
foreach(internal DtStandardPatchRecord.h DtTdbSceneLoad.h DtNestedHeaderParser.h)
  if(EXISTS ${WORK}/prefix/include/zorTerrain/${internal})
    message(FATAL_ERROR "the internal header ${internal} was installed")
  endif()
endforeach()
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${WORK}/prefix
    -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK}/build)
set(sample ${WORK}/prefix/share/zorTerrain/sample)
run(${WORK}/build/consumer ${sample}/utm_zone32n.flt ${sample}/zone33_quad.mft)
if(NOT output STREQUAL "UTM 1\n")
  message(FATAL_ERROR "the consumer answered \"${output}\"")
endif()
# zorhost as installed: it finds the plug-in and its module beside it.
run(${WORK}/prefix/bin/zorhost inspect ${sample}/utm_zone32n.flt)
# The Python module as installed, when it was built: it finds the plug-in and zorhost's
# module from where it lies, not from the build tree. (No ';' in the code: CMake would
# split the argument there.)
if(PYTHON AND EXISTS ${WORK}/prefix/lib/python3/dist-packages)
  file(GLOB module ${WORK}/prefix/lib/python3/dist-packages/zorterrain*.so)
  if(NOT module)
    message(FATAL_ERROR "the Python module was not installed")
  endif()
  run(${CMAKE_COMMAND} -E env PYTHONPATH=${WORK}/prefix/lib/python3/dist-packages
      ZORTERRAIN_PLUGIN= ${PYTHON} -c
      "import zorterrain\ne = zorterrain.Engine()\nprint(e.plugin.startswith('${WORK}/prefix/'), len(e.describe('${sample}/zone33_quad.mft')['geometryDatasets']))")
  if(NOT output STREQUAL "True 1\n")
    message(FATAL_ERROR "the installed Python module answered \"${output}\"")
  endif()
endif()
file(REMOVE_RECURSE ${WORK})
