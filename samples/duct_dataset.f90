! duct.fld: developed flow along x in a duct of square section with a solid block in it.
!
! Grid. The unit cube, N cells in each direction. The layers of cells along x hold, from the
! inlet on: hexahedra (layers 0 to N-4), prisms (layer N-3), pyramids (layer N-2), pyramids and
! tetrahedra (layer N-1). Side faces are cut along the same diagonal in neighbouring cells, and
! faces between layers are never cut, so the mesh conforms. The (N+1)**3 nodes of the lattice
! come first, then the centre nodes of layer N-2 and of layer N-1, y fastest.
!
! Materials. 0 in the solid block (cells N/3 to N-N/3-1 in each direction), 2 in the last layer,
! 1 elsewhere. The block's surface is a region of its own, seen from the fluid.
!
! Solution, the same at all times:
!   PRES     p = 10 - 4 x
!   TEMP     T = 300 + 10 x + 5 y**2
!   VEL      u = sin(pi y) sin(pi z)
!            v = 0.1 sin(pi y) cos(pi z)
!            w = -0.1 cos(pi y) sin(pi z)
! u is the leading term of the series for the force-driven duct, (v, w) a vortex that turns
! about the axis without crossing the walls; the whole is free of divergence. Nodes that only
! elements of the solid block use hold the unused-value marker in every variable.
module duct_dataset
    use, intrinsic :: iso_fortran_env, only: int32, real64
    use fld_items
    use fld_sections
    use hexahedral_block
    implicit none
    private

    public :: write_duct

    integer(int32), parameter :: bias = 1
    integer(int32), parameter :: cycle_number = 500
    real(real64), parameter :: time = 2.5_real64
    real(real64), parameter :: unused_marker = -1.0e30_real64
    real(real64), parameter :: pi = acos(-1.0_real64)

    ! How a cell is cut. The numbers below are corners of the cell, 8 being its centre.
    integer, parameter :: whole = 1, two_prisms = 2, six_pyramids = 3, pyramids_and_tetrahedra = 4
    integer, parameter :: elements_of_cut(4) = [1, 2, 6, 10]
    integer, parameter :: nodes_of_cut(4) = [8, 12, 30, 42]

    integer, parameter :: prism_corners(12) = [0, 5, 1, 3, 6, 2, 0, 4, 5, 3, 7, 6]
    integer, parameter :: pyramid_corners(30) = &
        [0, 3, 7, 4, 8, 1, 5, 6, 2, 8, 0, 4, 5, 1, 8, 3, 2, 6, 7, 8, 0, 1, 2, 3, 8, 4, 7, 6, 5, 8]
    integer, parameter :: tetrahedron_corners(32) = &
        [0, 5, 1, 8, 0, 4, 5, 8, 3, 6, 7, 8, 3, 2, 6, 8, &
         0, 2, 3, 8, 0, 1, 2, 8, 4, 6, 5, 8, 4, 7, 6, 8]

    ! The element of a cell that owns a side, per side; the triangles of a cut side one by one.
    integer, parameter :: prism_of_side(6) = [1, 0, -1, -1, 0, 1]
    integer, parameter :: prism_of_triangle(2, 3:4) = reshape([0, 1, 1, 0], [2, 2])

    type :: duct_mesh
        integer :: n               ! cells in each direction
        integer :: solid_first     ! the first cell of the solid block, in each direction
        integer :: solid_last
        type(block_mesh) :: lattice
    end type duct_mesh

contains

    ! ---- mesh ----

    function new_duct(n) result(duct)
        integer, intent(in) :: n
        type(duct_mesh) :: duct

        duct%n = n
        duct%solid_first = n/3
        duct%solid_last = n - n/3 - 1
        duct%lattice = block_mesh([n, n, n], bias)
    end function new_duct

    pure integer function cut_of_layer(duct, i)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: i

        cut_of_layer = max(whole, i - duct%n + 5)
    end function cut_of_layer

    pure logical function in_solid(duct, cell)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: cell(3)

        in_solid = all(cell >= duct%solid_first .and. cell <= duct%solid_last)
    end function in_solid

    ! The number of elements in the layers before layer i.
    pure integer function elements_before(duct, i)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: i
        integer :: layer

        elements_before = 0
        do layer = 0, i - 1
            elements_before = elements_before + duct%n**2*elements_of_cut(cut_of_layer(duct, layer))
        end do
    end function elements_before

    ! The number of the first element that a cell was cut into.
    pure integer(int32) function first_element(duct, cell)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: cell(3)

        first_element = bias + elements_before(duct, cell(1)) &
                        + (cell(2) + duct%n*cell(3))*elements_of_cut(cut_of_layer(duct, cell(1)))
    end function first_element

    ! The node numbers of a cell's corners and of its centre, where it has a centre node.
    pure function cell_nodes(duct, cell) result(nodes)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: cell(3)
        integer(int32) :: nodes(0:8)
        integer :: layer

        nodes(0:7) = cell_corners(duct%lattice, cell)
        nodes(8) = -1
        layer = cell(1) - (duct%n - 2)
        if (layer >= 0) nodes(8) = bias + node_total(duct%lattice) &
                                   + cell(2) + duct%n*(cell(3) + duct%n*layer)
    end function cell_nodes

    ! ---- nodes ----

    subroutine duct_nodes(duct, x, y, z, hidden)
        type(duct_mesh), intent(in) :: duct
        real(real64), allocatable, intent(out) :: x(:), y(:), z(:)
        logical, allocatable, intent(out) :: hidden(:)
        real(real64) :: low, high

        low = real(duct%solid_first, real64)/duct%n
        high = real(duct%solid_last + 1, real64)/duct%n
        x = [block_indices(duct%lattice, 1), centres(duct, 1)]
        y = [block_indices(duct%lattice, 2), centres(duct, 2)]
        z = [block_indices(duct%lattice, 3), centres(duct, 3)]
        hidden = x > low .and. x < high .and. y > low .and. y < high .and. z > low .and. z < high
    end subroutine duct_nodes

    ! One coordinate of the centre nodes of the last two layers.
    function centres(duct, direction) result(coordinate)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: direction
        real(real64), allocatable :: coordinate(:)
        integer :: cell(3), i, j, k, n

        allocate (coordinate(2*duct%n**2))
        n = 0
        do i = duct%n - 2, duct%n - 1
            do k = 0, duct%n - 1
                do j = 0, duct%n - 1
                    n = n + 1
                    cell = [i, j, k]
                    coordinate(n) = (cell(direction) + 0.5_real64)/duct%n
                end do
            end do
        end do
    end function centres

    ! ---- elements ----

    subroutine duct_elements(duct, codes, nodes, materials)
        type(duct_mesh), intent(in) :: duct
        integer(int32), allocatable, intent(out) :: codes(:), nodes(:), materials(:)
        integer :: i, total, entries

        total = elements_before(duct, duct%n)
        entries = duct%n**2*(nodes_of_cut(whole)*(duct%n - 3) + sum(nodes_of_cut(two_prisms:)))
        allocate (codes(total), materials(total), nodes(entries))
        total = 0
        entries = 0
        do i = 0, duct%n - 1
            select case (cut_of_layer(duct, i))
            case (whole)
                call cut_layer(i, [hexahedron], [0, 1, 2, 3, 4, 5, 6, 7])
            case (two_prisms)
                call cut_layer(i, [prism, prism], prism_corners)
            case (six_pyramids)
                call cut_layer(i, spread(pyramid, 1, 6), pyramid_corners)
            case (pyramids_and_tetrahedra)
                call cut_layer(i, [spread(pyramid, 1, 2), spread(tetrahedron, 1, 8)], &
                               [pyramid_corners(:10), tetrahedron_corners])
            end select
        end do

    contains

        ! Cuts every cell of a layer in the same way.
        subroutine cut_layer(layer, cut_codes, corners)
            integer, intent(in) :: layer, corners(:)
            integer(int32), intent(in) :: cut_codes(:)
            integer(int32) :: available(0:8)
            integer :: j, k

            do k = 0, duct%n - 1
                do j = 0, duct%n - 1
                    available = cell_nodes(duct, [layer, j, k])
                    codes(total + 1:total + size(cut_codes)) = cut_codes
                    materials(total + 1:total + size(cut_codes)) = material([layer, j, k])
                    nodes(entries + 1:entries + size(corners)) = available(corners)
                    total = total + size(cut_codes)
                    entries = entries + size(corners)
                end do
            end do
        end subroutine cut_layer

        integer(int32) function material(cell)
            integer, intent(in) :: cell(3)

            material = 1
            if (cell(1) == duct%n - 1) material = 2
            if (in_solid(duct, cell)) material = 0
        end function material
    end subroutine duct_elements

    ! ---- boundary faces ----

    function duct_regions(duct) result(regions)
        type(duct_mesh), intent(in) :: duct
        type(surface_region), allocatable :: regions(:)
        integer :: side

        allocate (regions(5))
        regions(1) = new_region('inlet', 'INLET(VELOCITY)')
        regions(2) = new_region('outlet', 'Outlet_Boundary')
        regions(3) = new_region('wall_y', 'Wall_Boundary')
        regions(4) = new_region('wall_z', 'WALL(NOSLIP)')
        regions(5) = new_region('block', 'Wall_Boundary')
        call add_outer_side(duct, 1, regions(1))
        call add_outer_side(duct, 2, regions(2))
        do side = 3, 4
            call add_outer_side(duct, side, regions(3))
            call add_outer_side(duct, side + 2, regions(4))
        end do
        do side = 1, 6
            call add_solid_side(duct, side, regions(5))
        end do
    end function duct_regions

    subroutine add_outer_side(duct, side, region)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: side
        type(surface_region), intent(inout) :: region
        integer :: first(3), last(3)

        first = 0
        last = duct%n - 1
        call layer_at_side(side, first, last)
        call add_sides_of_cells(duct, first, last, side, region)
    end subroutine add_outer_side

    ! Adds the faces at one side of the solid block. They belong to the fluid cells beyond it.
    subroutine add_solid_side(duct, side, region)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: side
        type(surface_region), intent(inout) :: region
        integer, parameter :: opposite(6) = [2, 1, 4, 3, 6, 5]
        integer :: first(3), last(3), direction, step

        first = duct%solid_first
        last = duct%solid_last
        call layer_at_side(side, first, last)
        direction = (side + 1)/2
        step = merge(-1, 1, modulo(side, 2) == 1)
        first(direction) = first(direction) + step
        last(direction) = last(direction) + step
        call add_sides_of_cells(duct, first, last, opposite(side), region)
    end subroutine add_solid_side

    subroutine add_sides_of_cells(duct, first, last, side, region)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: first(3), last(3), side
        type(surface_region), intent(inout) :: region
        integer :: i, j, k

        do i = first(1), last(1)
            do k = first(3), last(3)
                do j = first(2), last(2)
                    call add_side_of_cell(duct, [i, j, k], side, region)
                end do
            end do
        end do
    end subroutine add_sides_of_cells

    ! Adds one side of a cell: a quadrilateral, or the two triangles that the cut makes of it.
    subroutine add_side_of_cell(duct, cell, side, region)
        type(duct_mesh), intent(in) :: duct
        integer, intent(in) :: cell(3), side
        type(surface_region), intent(inout) :: region
        integer(int32) :: nodes(0:8), face(4), element
        integer :: owners(2)

        nodes = cell_nodes(duct, cell)
        face = nodes(side_corners(:, side))
        element = first_element(duct, cell)
        owners = owners_of_side(cut_of_layer(duct, cell(1)), side)
        if (owners(1) == owners(2)) then
            call add_face(region, element + owners(1), face)
        else
            call add_face(region, element + owners(1), face([1, 2, 3]))
            call add_face(region, element + owners(2), face([1, 3, 4]))
        end if
    end subroutine add_side_of_cell

    ! The elements of a cell that own the two halves of a side; the same one twice for a whole side.
    pure function owners_of_side(cut, side) result(owners)
        integer, intent(in) :: cut, side
        integer :: owners(2)

        owners = 0
        select case (cut)
        case (two_prisms)
            owners = prism_of_side(side)
            if (side == 3 .or. side == 4) owners = prism_of_triangle(:, side)
        case (six_pyramids)
            owners = side - 1
        case (pyramids_and_tetrahedra)
            owners = side - 1
            if (side > 2) owners = 2 + 2*(side - 3) + [0, 1]
        end select
    end function owners_of_side

    ! ---- solution ----

    elemental real(real64) function pressure(x)
        real(real64), intent(in) :: x

        pressure = 10 - 4*x
    end function pressure

    elemental real(real64) function temperature(x, y)
        real(real64), intent(in) :: x, y

        temperature = 300 + 10*x + 5*y**2
    end function temperature

    elemental real(real64) function velocity_x(y, z)
        real(real64), intent(in) :: y, z

        velocity_x = sin(pi*y)*sin(pi*z)
    end function velocity_x

    elemental real(real64) function velocity_y(y, z)
        real(real64), intent(in) :: y, z

        velocity_y = 0.1_real64*sin(pi*y)*cos(pi*z)
    end function velocity_y

    elemental real(real64) function velocity_z(y, z)
        real(real64), intent(in) :: y, z

        velocity_z = -0.1_real64*cos(pi*y)*sin(pi*z)
    end function velocity_z

    ! ---- file ----

    subroutine write_duct(directory, format, n)
        character(len=*), intent(in) :: directory
        type(fld_format), intent(in) :: format
        integer, intent(in) :: n
        type(fld_file) :: file
        type(duct_mesh) :: duct

        duct = new_duct(n)
        call open_fld(file, directory//'/duct.fld', format)
        call begin_header(file, bias, cycle_number, time, unused_marker)
        call end_header(file)
        call begin_grid(file, 0)
        call write_coordinate_system(file, cartesian)
        call write_nodes_and_variables(file, duct)
        call write_cells_and_regions(file, duct)
        call end_grids(file)
        call close_fld(file)
    end subroutine write_duct

    subroutine write_nodes_and_variables(file, duct)
        type(fld_file), intent(in) :: file
        type(duct_mesh), intent(in) :: duct
        real(real64), allocatable :: x(:), y(:), z(:)
        logical, allocatable :: hidden(:)

        call duct_nodes(duct, x, y, z, hidden)
        call write_nodes(file, x, y, z)
        call write_scalar(file, 'PRES', 'Pressure', merge(unused_marker, pressure(x), hidden))
        call write_scalar(file, 'TEMP', 'Temperature', &
                          merge(unused_marker, temperature(x, y), hidden))
        call write_vector(file, 'VEL', 'Velocity', &
                          merge(unused_marker, velocity_x(y, z), hidden), &
                          merge(unused_marker, velocity_y(y, z), hidden), &
                          merge(unused_marker, velocity_z(y, z), hidden))
    end subroutine write_nodes_and_variables

    subroutine write_cells_and_regions(file, duct)
        type(fld_file), intent(in) :: file
        type(duct_mesh), intent(in) :: duct
        integer(int32), allocatable :: codes(:), nodes(:), materials(:)
        type(surface_region), allocatable :: regions(:)

        regions = duct_regions(duct)
        call write_region_types(file, regions, 32)
        call write_surface_geometry(file, regions, own_length)
        call duct_elements(duct, codes, nodes, materials)
        call write_materials(file, materials)
        call write_elements(file, codes, nodes)
    end subroutine write_cells_and_regions
end module duct_dataset
