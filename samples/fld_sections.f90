! The header and the data sections that the datasets share. Node and element numbers are
! written as they are given: they already count from the number base of the file.
module fld_sections
    use, intrinsic :: iso_fortran_env, only: int32, real32, real64
    use fld_items
    implicit none
    private

    public :: surface_region, new_region, add_face, padded
    public :: begin_header, end_header, begin_grid, end_grids, begin_section, end_section
    public :: write_coordinate_system, write_nodes, write_materials, write_elements
    public :: write_region_types, write_surface_geometry, write_surface_geometry_array
    public :: write_scalar, write_vector

    integer(int32), parameter, public :: cartesian = 0, cylindrical = 1
    integer(int32), parameter, public :: tetrahedron = 34, pyramid = 35, prism = 36, hexahedron = 38
    integer(int32), parameter, public :: triangle = 133, quadrilateral = 134

    ! The name length that stands for "each name has its own length".
    integer, parameter, public :: own_length = -1

    ! An item that the sections carry and no reader interprets.
    integer(int32), parameter :: uninterpreted = 0

    ! A named set of boundary faces. `kind` is the type text that tells walls from other regions.
    type :: surface_region
        character(len=:), allocatable :: name, kind
        integer :: face_count = 0, node_count = 0
        integer(int32), allocatable :: codes(:), elements(:), nodes(:)
    end type surface_region

contains

    ! ---- surface regions ----

    function new_region(name, kind) result(region)
        character(len=*), intent(in) :: name, kind
        type(surface_region) :: region

        region%name = name
        region%kind = kind
        allocate (region%codes(64), region%elements(64), region%nodes(256))
    end function new_region

    ! Adds a face of three or four nodes.
    subroutine add_face(region, element, nodes)
        type(surface_region), intent(inout) :: region
        integer(int32), intent(in) :: element, nodes(:)
        integer(int32), parameter :: code_of_size(3:4) = [triangle, quadrilateral]

        call make_room(region%codes, region%face_count + 1)
        call make_room(region%elements, region%face_count + 1)
        call make_room(region%nodes, region%node_count + size(nodes))
        region%codes(region%face_count + 1) = code_of_size(size(nodes))
        region%elements(region%face_count + 1) = element
        region%nodes(region%node_count + 1:region%node_count + size(nodes)) = nodes
        region%face_count = region%face_count + 1
        region%node_count = region%node_count + size(nodes)
    end subroutine add_face

    subroutine make_room(values, needed)
        integer(int32), allocatable, intent(inout) :: values(:)
        integer, intent(in) :: needed
        integer(int32), allocatable :: wider(:)

        if (needed <= size(values)) return
        allocate (wider(max(needed, 2*size(values))))
        wider(:size(values)) = values
        call move_alloc(wider, values)
    end subroutine make_room

    ! `name` filled with blanks to `length`, or as it is when names have their own length.
    function padded(name, length) result(text)
        character(len=*), intent(in) :: name
        integer, intent(in) :: length
        character(len=:), allocatable :: text

        text = name
        if (length /= own_length) text = name//repeat(' ', length - len(name))
    end function padded

    ! ---- header ----

    ! Writes the header up to the place where further keywords may follow.
    subroutine begin_header(file, bias, cycle_number, time, unused)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: bias, cycle_number
        real(real64), intent(in) :: time
        real(real64), intent(in), optional :: unused

        call put_signature(file)
        call begin_section(file, 'Dimension')
        call put_int(file, 3_int32)
        call end_section(file)
        call begin_section(file, 'Bias')
        call put_int(file, bias)
        call end_section(file)
        call begin_section(file, 'Cycle')
        call put_int(file, cycle_number)
        call put_real(file, time)
        call end_section(file)
        if (present(unused)) call write_unused_marker(file, unused)
    end subroutine begin_header

    ! The single-precision marker always stands; the double one only where reals are double.
    subroutine write_unused_marker(file, unused)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: unused

        call begin_section(file, 'Unused')
        call put_single(file, real(unused, real32))
        if (file%format%real_size == 8) call put_real(file, unused)
        call end_section(file)
    end subroutine write_unused_marker

    subroutine end_header(file)
        type(fld_file), intent(in) :: file

        call put_name(file, 'HeaderDataEnd')
    end subroutine end_header

    ! ---- grids ----

    ! Opens the grid of this number, counting from 0.
    subroutine begin_grid(file, number)
        type(fld_file), intent(in) :: file
        integer, intent(in) :: number
        character(len=12) :: digits

        write (digits, '(i0)') number
        call put_name(file, 'OverlapStart_'//digits)
    end subroutine begin_grid

    subroutine end_grids(file)
        type(fld_file), intent(in) :: file

        call put_name(file, 'OverlapEnd')
    end subroutine end_grids

    ! ---- sections ----

    subroutine begin_section(file, name)
        type(fld_file), intent(in) :: file
        character(len=*), intent(in) :: name

        call put_name(file, name)
    end subroutine begin_section

    subroutine end_section(file)
        type(fld_file), intent(in) :: file

        call put_end(file)
    end subroutine end_section

    subroutine write_coordinate_system(file, code)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: code

        call begin_section(file, 'LS_CoordinateSystem')
        call put_int(file, uninterpreted)
        call put_int(file, code)
        call end_section(file)
    end subroutine write_coordinate_system

    subroutine write_nodes(file, first, second, third)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: first(:), second(:), third(:)

        call begin_section(file, 'LS_Nodes')
        call put_int(file, uninterpreted)
        call put_int(file, size(first))
        call put_reals(file, first)
        call put_reals(file, second)
        call put_reals(file, third)
        call end_section(file)
    end subroutine write_nodes

    subroutine write_materials(file, materials)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: materials(:)

        call begin_section(file, 'LS_MatOfElements')
        call put_int(file, uninterpreted)
        call put_int(file, size(materials))
        call put_ints(file, materials)
        call end_section(file)
    end subroutine write_materials

    subroutine write_elements(file, codes, nodes)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: codes(:), nodes(:)

        call begin_section(file, 'LS_Elements')
        call put_int(file, uninterpreted)
        call put_int(file, size(codes))
        call put_ints(file, codes)
        call put_int(file, size(nodes))
        call put_ints(file, nodes)
        call end_section(file)
    end subroutine write_elements

    subroutine write_region_types(file, regions, length)
        type(fld_file), intent(in) :: file
        type(surface_region), intent(in) :: regions(:)
        integer, intent(in) :: length
        integer :: i

        call begin_section(file, 'LS_RegionName&Type')
        call put_int(file, uninterpreted)
        call put_int(file, size(regions))
        call put_int(file, length)
        do i = 1, size(regions)
            call put_text(file, regions(i)%kind)
            call put_text(file, padded(regions(i)%name, length))
        end do
        call end_section(file)
    end subroutine write_region_types

    ! The regions one after the other, each with its own items.
    subroutine write_surface_geometry(file, regions, length)
        type(fld_file), intent(in) :: file
        type(surface_region), intent(in) :: regions(:)
        integer, intent(in) :: length
        integer :: i

        call begin_section(file, 'LS_SurfaceGeometry')
        call put_int(file, uninterpreted)
        call put_int(file, size(regions))
        call put_int(file, length)
        do i = 1, size(regions)
            call put_text(file, padded(regions(i)%name, length))
            call put_int(file, regions(i)%face_count)
            call put_ints(file, regions(i)%codes(:regions(i)%face_count))
            call put_ints(file, regions(i)%elements(:regions(i)%face_count))
            call put_int(file, regions(i)%node_count)
            call put_ints(file, regions(i)%nodes(:regions(i)%node_count))
        end do
        call end_section(file)
    end subroutine write_surface_geometry

    ! All names in one item and the data of all regions in shared arrays.
    subroutine write_surface_geometry_array(file, regions, width)
        type(fld_file), intent(in) :: file
        type(surface_region), intent(in) :: regions(:)
        integer, intent(in) :: width
        character(len=:), allocatable :: names
        integer(int32), allocatable :: codes(:), elements(:), nodes(:)
        integer :: i

        names = ''
        allocate (codes(0), elements(0), nodes(0))
        do i = 1, size(regions)
            names = names//padded(regions(i)%name, width)
            codes = [codes, regions(i)%codes(:regions(i)%face_count)]
            elements = [elements, regions(i)%elements(:regions(i)%face_count)]
            nodes = [nodes, regions(i)%nodes(:regions(i)%node_count)]
        end do
        call begin_section(file, 'LS_SurfaceGeometryArray')
        call put_int(file, uninterpreted)
        call put_int(file, size(regions))
        call put_int(file, width)
        call put_text(file, names)
        call put_ints(file, regions%face_count)
        call put_ints(file, codes)
        call put_ints(file, elements)
        call put_ints(file, regions%node_count)
        call put_ints(file, nodes)
        call end_section(file)
    end subroutine write_surface_geometry_array

    subroutine write_scalar(file, key, label, values)
        type(fld_file), intent(in) :: file
        character(len=*), intent(in) :: key, label
        real(real64), intent(in) :: values(:)

        call begin_section(file, 'LS_Scalar:'//key)
        call put_int(file, uninterpreted)
        call put_text(file, label)
        call put_int(file, size(values))
        call put_reals(file, values)
        call end_section(file)
    end subroutine write_scalar

    subroutine write_vector(file, key, label, first, second, third)
        type(fld_file), intent(in) :: file
        character(len=*), intent(in) :: key, label
        real(real64), intent(in) :: first(:), second(:), third(:)

        call begin_section(file, 'LS_Vector:'//key)
        call put_int(file, uninterpreted)
        call put_int(file, uninterpreted)
        call put_text(file, label)
        call put_int(file, size(first))
        call put_reals(file, first)
        call put_reals(file, second)
        call put_reals(file, third)
        call end_section(file)
    end subroutine write_vector
end module fld_sections
