# The sample's compiled assets: one command per source document under content/zarn (model
# documents, materials, texture recipes) writes its compiled file at the same path plus "_c" under
# game/zarn, and runs again only when the document or a file it names has changed. The target
# `sample_assets` builds them all. Nothing happens until the build has a `resourcecompiler`.
#
# Paths inside the documents are relative to the content root. A model document's compile also
# compiles the materials it names (writing their compiled files again), so a model depends on the
# material documents it names, not on their compiled files: a changed texture recompiles only its
# material, and models that share a material do not keep each other out of date.
if(NOT TARGET resourcecompiler)
  return()
endif()

set(sample_content ${CMAKE_CURRENT_LIST_DIR}/content/zarn)
set(sample_game ${CMAKE_CURRENT_LIST_DIR}/game/zarn)
file(GLOB_RECURSE sample_documents CONFIGURE_DEPENDS
  ${sample_content}/*.zmdl ${sample_content}/*.zmat ${sample_content}/*.ztex)
list(SORT sample_documents)
set(sample_reference_regex "\"[^\"]+\\.(fbx|FBX|dmx|zmat|png|tga|psd|bmp|jpg|jpeg)\"")

set(sample_outputs)
foreach(document IN LISTS sample_documents)
  file(RELATIVE_PATH relative ${sample_content} ${document})
  # Materials that imports start from are read as they stand, never compiled.
  if(relative MATCHES "_template\\.zmat$")
    continue()
  endif()
  set(output ${sample_game}/${relative}_c)
  set(depends ${document} resourcecompiler)
  set(byproducts)
  file(STRINGS ${document} lines REGEX "${sample_reference_regex}")
  foreach(line IN LISTS lines)
    string(REGEX MATCHALL "${sample_reference_regex}" references "${line}")
    foreach(reference IN LISTS references)
      string(REPLACE "\"" "" reference "${reference}")
      if(NOT EXISTS ${sample_content}/${reference})
        message(WARNING "${relative} names ${reference}, which is not under ${sample_content}")
        continue()
      endif()
      list(APPEND depends ${sample_content}/${reference})
      get_filename_component(extension ${reference} LAST_EXT)
      string(SUBSTRING "${extension}" 1 -1 extension)
      string(REGEX REPLACE "\\.[^.]+$" "" stem ${reference})
      if(extension MATCHES "^(png|tga|psd|bmp|jpg|jpeg)$")
        # A texture compiles with the settings beside it, to a name that keeps its extension.
        if(EXISTS ${sample_content}/${stem}.txt)
          list(APPEND depends ${sample_content}/${stem}.txt)
        endif()
        if(relative MATCHES "\\.zmat$")
          list(APPEND byproducts ${sample_game}/${stem}_${extension}.ztex_c)
        endif()
      endif()
    endforeach()
  endforeach()
  list(REMOVE_DUPLICATES depends)
  list(REMOVE_DUPLICATES byproducts)
  add_custom_command(
    OUTPUT ${output}
    BYPRODUCTS ${byproducts}
    COMMAND resourcecompiler -game ${sample_game} ${document}
    DEPENDS ${depends}
    COMMENT "Compiling the sample's ${relative}"
    VERBATIM)
  list(APPEND sample_outputs ${output})
endforeach()
add_custom_target(sample_assets ALL DEPENDS ${sample_outputs})
